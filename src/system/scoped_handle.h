// An owner of a platform handle (a pipe end, a process, a thread, a file)
// that closes it with CloseHandle when it goes out of scope, on every way out,
// an exception included.
#pragma once

#include "win32/win32.h"

class ScopedHandle {
 public:
  ScopedHandle() = default;
  explicit ScopedHandle(HANDLE handle) : handle_(handle) {}
  ~ScopedHandle() { reset(); }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;

  HANDLE get() const { return handle_; }
  // For calls that hand out a handle: the owner takes what they store.
  HANDLE* put() {
    reset();
    return &handle_;
  }
  // Closes the handle now, if there is one.
  void reset() {
    if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    handle_ = nullptr;
  }

 private:
  HANDLE handle_ = nullptr;
};
