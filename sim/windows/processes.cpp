// Child processes, pipes, the process token and its privileges, and
// controller libraries on the simulated PC.
//
// A child is scripted by the machine's "processes": its output and exit
// code. It writes its output into the pipe as the parent reads it, a line at
// a time, and ends when all of it has been read, so that a parent can watch
// it run and TerminateProcess can stop it early.
#include <algorithm>
#include <cstring>
#include <map>

#include "sim/windows/face.h"
#include "sim/windows/face_state.h"

namespace sim {
namespace windows {

namespace {

std::map<std::string, std::map<std::string, void*>>& libraryRegistry() {
  static std::map<std::string, std::map<std::string, void*>> registry;
  return registry;
}

std::string baseName(const std::string& path) {
  const size_t cut = path.find_last_of("\\/");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

// The machine offers a library if its "libraries" list names the file.
bool machineOffersLibrary(Face& face, const std::string& name) {
  Machine* machine = face.machine();
  if (machine == nullptr) return false;
  const auto it = machine->description.find("libraries");
  if (it == machine->description.end() || !it->is_array()) return false;
  for (const auto& entry : *it) {
    std::string offered;
    if (entry.is_string()) {
      offered = entry.get<std::string>();
    } else if (entry.is_object() && entry.contains("name") && entry["name"].is_string()) {
      offered = entry["name"].get<std::string>();
    }
    if (lowerAscii(offered) == name) return true;
  }
  return false;
}

const nlohmann::json* scriptFor(Face& face, const std::string& commandLine) {
  Machine* machine = face.machine();
  if (machine == nullptr) return nullptr;
  const auto it = machine->description.find("processes");
  if (it == machine->description.end() || !it->is_array()) return nullptr;
  // The image is the first word of the command line, or its quoted start.
  std::string image;
  if (!commandLine.empty() && commandLine[0] == '"') {
    image = commandLine.substr(1, commandLine.find('"', 1) - 1);
  } else {
    image = commandLine.substr(0, commandLine.find(' '));
  }
  const std::string name = lowerAscii(baseName(image));
  for (const auto& entry : *it) {
    if (!entry.is_object() || !entry.contains("image") || !entry["image"].is_string()) continue;
    if (lowerAscii(entry["image"].get<std::string>()) != name) continue;
    if (entry.contains("arguments") && entry["arguments"].is_string() &&
        lowerAscii(commandLine).find(lowerAscii(entry["arguments"].get<std::string>())) == std::string::npos) {
      continue;
    }
    return &entry;
  }
  return nullptr;
}

// Moves the child's next line into the pipe; the child ends with its script.
void produce(ProcessObject& process) {
  if (process.exited || !process.output) return;
  if (process.script.empty()) {
    process.exited = true;
    process.exitCode = process.finalExitCode;
    return;
  }
  size_t cut = process.script.find_first_of("\r\n");
  if (cut == std::string::npos) {
    cut = process.script.size();
  } else {
    // A line ends at its CR, LF or CR LF.
    if (process.script[cut] == '\r' && cut + 1 < process.script.size() && process.script[cut + 1] == '\n') ++cut;
    ++cut;
  }
  process.output->data += process.script.substr(0, cut);
  process.script.erase(0, cut);
}

std::vector<std::shared_ptr<ProcessObject>> producersOf(Face& face, const PipeBuffer* buffer) {
  std::vector<std::shared_ptr<ProcessObject>> list;
  for (const auto& entry : face.objects()) {
    if (entry.second->kind != ObjectKind::Process) continue;
    auto process = std::static_pointer_cast<ProcessObject>(entry.second);
    if (process->output.get() == buffer) list.push_back(process);
  }
  return list;
}

}  // namespace

BOOL pipeTransfer(Face& face, PipeObject& pipe, bool write, uint8_t* buffer, DWORD length, LPDWORD done) {
  if (done != nullptr) *done = 0;
  if (!pipe.buffer) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (write) {
    if (pipe.readEnd) return fail(ERROR_ACCESS_DENIED, FALSE);
    pipe.buffer->data.append(reinterpret_cast<const char*>(buffer), length);
    if (done != nullptr) *done = length;
    return TRUE;
  }
  if (!pipe.readEnd) return fail(ERROR_ACCESS_DENIED, FALSE);
  if (pipe.buffer->data.empty()) {
    for (auto& process : producersOf(face, pipe.buffer.get())) {
      produce(*process);
      if (!pipe.buffer->data.empty()) break;
    }
  }
  if (pipe.buffer->data.empty()) {
    // Nothing more will come (the simulated PC can't block on a pipe that
    // only its own caller could still fill).
    for (auto& process : producersOf(face, pipe.buffer.get())) produce(*process);
    return fail(ERROR_BROKEN_PIPE, FALSE);
  }
  const DWORD n = std::min<DWORD>(length, static_cast<DWORD>(pipe.buffer->data.size()));
  std::memcpy(buffer, pipe.buffer->data.data(), n);
  pipe.buffer->data.erase(0, n);
  if (done != nullptr) *done = n;
  return TRUE;
}

}  // namespace windows

void registerLibraryFunction(const std::string& library, const std::string& symbol, void* function) {
  windows::libraryRegistry()[windows::lowerAscii(library)][symbol] = function;
}

}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;

BOOL CreatePipe(PHANDLE readPipe, PHANDLE writePipe, LPSECURITY_ATTRIBUTES, DWORD) {
  if (readPipe == nullptr || writePipe == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  Face& face = Face::instance();
  auto buffer = std::make_shared<sim::windows::PipeBuffer>();
  auto reader = std::make_shared<sim::windows::PipeObject>();
  reader->buffer = buffer;
  reader->readEnd = true;
  auto writer = std::make_shared<sim::windows::PipeObject>();
  writer->buffer = buffer;
  writer->readEnd = false;
  *readPipe = face.addObject(reader);
  *writePipe = face.addObject(writer);
  return TRUE;
}

BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                    DWORD, LPVOID, LPCWSTR, LPSTARTUPINFOW startupInfo, LPPROCESS_INFORMATION processInformation) {
  using namespace sim::windows;
  Face& face = Face::instance();
  if (processInformation == nullptr || (application == nullptr && commandLine == nullptr)) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  const std::string line = commandLine != nullptr ? narrow(commandLine) : narrow(application);
  const nlohmann::json* script = scriptFor(face, line);
  if (script == nullptr) return fail(ERROR_FILE_NOT_FOUND, FALSE);
  auto process = std::make_shared<ProcessObject>();
  if (script->contains("output") && (*script)["output"].is_string()) process->script = (*script)["output"];
  if (script->contains("lines") && (*script)["lines"].is_array()) {
    for (const auto& text : (*script)["lines"]) {
      if (text.is_string()) process->script += text.get<std::string>() + "\r\n";
    }
  }
  process->finalExitCode = script->value("exitCode", 0u);
  // Output goes where the start-up record's standard output points.
  if (startupInfo != nullptr && (startupInfo->dwFlags & STARTF_USESTDHANDLES) != 0) {
    auto pipe = face.findAs<PipeObject>(startupInfo->hStdOutput, ObjectKind::Pipe);
    if (pipe) process->output = pipe->buffer;
  }
  if (!process->output) process->output = std::make_shared<PipeBuffer>();
  auto thread = std::make_shared<TokenObject>();
  processInformation->hProcess = face.addObject(process);
  processInformation->hThread = face.addObject(thread);
  processInformation->dwProcessId = 0x1000 + static_cast<DWORD>(face.objects().size());
  processInformation->dwThreadId = processInformation->dwProcessId + 4;
  return TRUE;
}

BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) {
  using namespace sim::windows;
  auto object = Face::instance().findAs<ProcessObject>(process, ObjectKind::Process);
  if (!object) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (exitCode == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // A child whose output has all been taken has ended.
  if (!object->exited && object->script.empty() && object->output && object->output->data.empty()) {
    object->exited = true;
    object->exitCode = object->finalExitCode;
  }
  *exitCode = object->exited ? object->exitCode : STILL_ACTIVE;
  return TRUE;
}

BOOL TerminateProcess(HANDLE process, UINT exitCode) {
  using namespace sim::windows;
  auto object = Face::instance().findAs<ProcessObject>(process, ObjectKind::Process);
  if (!object) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (object->exited) return fail(ERROR_ACCESS_DENIED, FALSE);
  object->script.clear();
  object->exited = true;
  object->exitCode = exitCode;
  return TRUE;
}

UINT WinExec(LPCSTR commandLine, UINT) {
  // Runs a scripted command to its end; 33 and above is success.
  using namespace sim::windows;
  if (commandLine == nullptr) return 0;
  return scriptFor(Face::instance(), commandLine) != nullptr ? 33 : ERROR_FILE_NOT_FOUND;
}

HANDLE GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)); }

BOOL OpenProcessToken(HANDLE process, DWORD, PHANDLE token) {
  if (process != GetCurrentProcess() || token == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  *token = Face::instance().addObject(std::make_shared<sim::windows::TokenObject>());
  return TRUE;
}

namespace {

// Privilege names and their LUIDs, in the numbering Windows uses.
const std::pair<const char*, DWORD> kPrivileges[] = {
    {"SeShutdownPrivilege", 19}, {"SeChangeNotifyPrivilege", 23}, {"SeManageVolumePrivilege", 28},
    {"SeBackupPrivilege", 17},   {"SeRestorePrivilege", 18},      {"SeDebugPrivilege", 20},
};

BOOL lookup(const std::string& name, PLUID luid) {
  if (luid == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  for (const auto& entry : kPrivileges) {
    if (sim::windows::lowerAscii(entry.first) == sim::windows::lowerAscii(name)) {
      luid->LowPart = entry.second;
      luid->HighPart = 0;
      return TRUE;
    }
  }
  return fail(ERROR_NO_SUCH_PRIVILEGE, FALSE);
}

}  // namespace

BOOL LookupPrivilegeValueA(LPCSTR, LPCSTR name, PLUID luid) { return lookup(name ? name : "", luid); }

BOOL LookupPrivilegeValueW(LPCWSTR, LPCWSTR name, PLUID luid) { return lookup(sim::windows::narrow(name), luid); }

BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD, PTOKEN_PRIVILEGES,
                           PDWORD returnLength) {
  Face& face = Face::instance();
  face.machine();
  if (!face.findAs<sim::windows::TokenObject>(token, sim::windows::ObjectKind::Token)) {
    return fail(ERROR_INVALID_HANDLE, FALSE);
  }
  if (returnLength != nullptr) *returnLength = 0;
  if (disableAll) {
    face.enabledPrivileges().clear();
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  if (newState == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // Success with ERROR_NOT_ALL_ASSIGNED when the token lacks one: as Windows.
  bool allAssigned = true;
  for (DWORD i = 0; i < newState->PrivilegeCount; ++i) {
    const LUID_AND_ATTRIBUTES& entry = newState->Privileges[i];
    const char* name = nullptr;
    for (const auto& known : kPrivileges) {
      if (known.second == entry.Luid.LowPart && entry.Luid.HighPart == 0) name = known.first;
    }
    if (name == nullptr || face.privileges().count(name) == 0) {
      allAssigned = false;
      continue;
    }
    if ((entry.Attributes & SE_PRIVILEGE_ENABLED) != 0) {
      face.enabledPrivileges().insert(name);
    } else {
      face.enabledPrivileges().erase(name);
    }
  }
  SetLastError(allAssigned ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
  return TRUE;
}

HMODULE LoadLibraryA(LPCSTR name) {
  using namespace sim::windows;
  Face& face = Face::instance();
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, static_cast<HMODULE>(nullptr));
  const std::string library = lowerAscii(baseName(name));
  if (!machineOffersLibrary(face, library)) return fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr));
  auto module = std::make_shared<ModuleObject>();
  module->library = library;
  return face.addObject(module);
}

HMODULE LoadLibraryW(LPCWSTR name) {
  const std::string text = sim::windows::narrow(name);
  return LoadLibraryA(name ? text.c_str() : nullptr);
}

HMODULE LoadLibraryExA(LPCSTR name, HANDLE, DWORD) { return LoadLibraryA(name); }

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
  using namespace sim::windows;
  auto object = Face::instance().findAs<ModuleObject>(module, ObjectKind::Module);
  if (!object) return fail(ERROR_INVALID_HANDLE, static_cast<FARPROC>(nullptr));
  if (name == nullptr) return fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr));
  const auto& registry = libraryRegistry();
  const auto library = registry.find(object->library);
  if (library == registry.end()) return fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr));
  const auto symbol = library->second.find(name);
  if (symbol == library->second.end()) return fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr));
  return reinterpret_cast<FARPROC>(symbol->second);
}

BOOL FreeLibrary(HMODULE module) {
  Face& face = Face::instance();
  if (!face.findAs<sim::windows::ModuleObject>(module, sim::windows::ObjectKind::Module)) {
    return fail(ERROR_INVALID_HANDLE, FALSE);
  }
  face.close(module);
  return TRUE;
}

}  // namespace api
}  // namespace sim
