// The module's version record, handed to the host by GetProductVersion.
#pragma once

#include <cstdint>

// Four fixed numbers; the host owns each object it gets and destroys it through
// the virtual destructor.
class ProductVersion {
 public:
  static constexpr uint32_t kMajor = 4;
  static constexpr uint32_t kMinor = 13;
  static constexpr uint32_t kRevision = 0;
  static constexpr uint32_t kBuild = 8834;

  virtual ~ProductVersion() = default;
  virtual uint64_t getMajor() const { return major_; }
  virtual uint64_t getMinor() const { return minor_; }
  virtual uint64_t getRevision() const { return revision_; }
  virtual uint64_t getBuild() const { return build_; }

 private:
  uint32_t major_ = kMajor;
  uint32_t minor_ = kMinor;
  uint32_t revision_ = kRevision;
  uint32_t build_ = kBuild;
};
