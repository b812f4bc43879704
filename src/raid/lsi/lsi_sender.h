// The three flavours of the LSI command library: each a file of its own,
// loaded from the module's directory, with one entry point that takes the
// command record. A sender is process-wide: made on first need, kept until
// the module's release.
#pragma once

#include <cstdint>
#include <string>

#include "raid/lsi/lsi_cmd.h"
#include "system/module_loader.h"

// The library's entry point: the record in, 0 for success.
using LsiEntryPoint = uint32_t (*)(void* record);

class LsiSender {
 public:
  LsiSender(void* library, LsiEntryPoint entry);
  virtual ~LsiSender();
  LsiSender(const LsiSender&) = delete;
  LsiSender& operator=(const LsiSender&) = delete;

  // Calls the entry point with `record`; its result, 0 for success.
  virtual uint32_t execute(LsiCmd& record);
  // Tells the library to free itself (freeLibrary); the caller unloads it.
  void cleanUp(ModuleLoader* loader);
  void* getLibrary() const { return library; }

 protected:
  // The class name that the failure text names.
  virtual const char* className() const = 0;

 private:
  void* library;
  LsiEntryPoint entry;
};

class LsiStdSender : public LsiSender {
 public:
  using LsiSender::LsiSender;
  static constexpr const char* kFile = "storelib.dll";
  static constexpr const char* kEntry = "ProcessLibCommand";

 protected:
  const char* className() const override { return "LsiStdSender"; }
};

class LsiIrSender : public LsiSender {
 public:
  using LsiSender::LsiSender;
  static constexpr const char* kFile = "storelibir.dll";
  static constexpr const char* kEntry = "ProcessLibCommandIR";

 protected:
  const char* className() const override { return "LsiIrSender"; }
};

class LsiIr2Sender : public LsiSender {
 public:
  using LsiSender::LsiSender;
  static constexpr const char* kFile = "storelibir-2.dll";
  static constexpr const char* kEntry = "ProcessLibCommandIR2";

 protected:
  const char* className() const override { return "LsiIr2Sender"; }
};

// The process-wide sender of each flavour, or null when its library is not
// beside the module, lacks its entry point or refuses to start. A call
// after a failure tries again.
LsiSender* getLsiStdSender();
LsiSender* getLsiIrSender();
LsiSender* getLsiIr2Sender();
// At the module's release: frees the library, destroys the sender and
// unloads the file; nothing when the sender was never made.
void releaseLsiStdSender();
void releaseLsiIrSender();
void releaseLsiIr2Sender();
