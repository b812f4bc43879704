// Reads and writes on disk, volume and file handles, synchronous and
// overlapped, the file pointer, and the completion of overlapped requests on
// the virtual clock: WaitForSingleObject, GetOverlappedResult, CancelIo.
//
// An overlapped request does its transfer when issued and is then pending
// until the clock reaches its completion time (a millisecond at the least); a device that hangs leaves it
// pending until CancelIo. The simulated PC can't block, so a wait that could
// never end returns WAIT_FAILED with ERROR_TIMEOUT instead of hanging.
#include <algorithm>
#include <cstring>

#include "sim/windows/face.h"
#include "sim/windows/face_state.h"

namespace sim {
namespace windows {

namespace {

// OVERLAPPED::Internal while a request is in flight.
constexpr ULONG_PTR kPendingStatus = 0x103;
// The time an overlapped request is pending at the least.
constexpr uint64_t kServiceMs = 1;

bool canRead(DWORD access) { return (access & (GENERIC_READ | GENERIC_ALL | MAXIMUM_ALLOWED)) != 0; }
bool canWrite(DWORD access) { return (access & (GENERIC_WRITE | GENERIC_ALL | MAXIMUM_ALLOWED)) != 0; }

DWORD completionError(Completion completion) {
  switch (completion) {
    case Completion::Done:
      return ERROR_SUCCESS;
    case Completion::Timeout:
      return ERROR_SEM_TIMEOUT;
    case Completion::NoDevice:
      return ERROR_DEVICE_NOT_CONNECTED;
    case Completion::TransportError:
      return ERROR_IO_DEVICE;
  }
  return ERROR_IO_DEVICE;
}

// The result of one transfer before it is reported.
struct Transfer {
  DWORD error = ERROR_SUCCESS;
  DWORD done = 0;
  bool hung = false;
  bool immediate = false;  // refused before reaching the device
};

Transfer refuse(DWORD error) {
  Transfer t;
  t.error = error;
  t.immediate = true;
  return t;
}

Transfer mediaTransfer(Face& face, size_t diskIndex, bool write, bool overlapped, uint64_t offset, uint8_t* buffer,
                       DWORD length, uint64_t limit) {
  Machine* machine = face.machine();
  if (machine == nullptr || diskIndex >= machine->disks.size()) return refuse(ERROR_INVALID_HANDLE);
  Disk& disk = machine->disks[diskIndex];
  if (!disk.media) return refuse(ERROR_NOT_READY);
  const uint32_t sector = disk.media->sectorSize();
  // Raw disk and volume transfers move whole sectors only.
  if (offset % sector != 0 || length % sector != 0) return refuse(ERROR_INVALID_PARAMETER);
  Transfer t;
  t.error = admitTransfer(face, diskIndex, write, overlapped, &t.hung);
  if (t.hung || t.error != ERROR_SUCCESS) return t;
  if (length == 0) return t;
  if (offset + length > limit) {
    t.error = ERROR_SECTOR_NOT_FOUND;
    return t;
  }
  const MediaResult result = write ? disk.media->writeBytes(offset, length, buffer)
                                   : disk.media->readBytes(offset, length, buffer);
  if (result == MediaResult::Unreadable) {
    t.error = ERROR_CRC;
  } else if (result == MediaResult::OutOfRange) {
    t.error = ERROR_SECTOR_NOT_FOUND;
  } else {
    t.done = length;
  }
  return t;
}

// A raw write may not touch a mounted volume: Windows refuses writes into a
// file system's sectors unless the volume is locked or dismounted.
bool overlapsMountedVolume(Face& face, size_t disk, uint64_t offset, uint64_t length) {
  for (auto& volume : face.volumes()) {
    if (volume->locked || volume->dismounted) continue;
    for (const auto& extent : volume->extents) {
      if (extent.disk == disk && offset < extent.offset + extent.length && extent.offset < offset + length) {
        return true;
      }
    }
  }
  return false;
}

Transfer transfer(Face& face, Object& object, bool write, bool overlapped, uint64_t offset, uint8_t* buffer,
                  DWORD length) {
  switch (object.kind) {
    case ObjectKind::Disk: {
      auto& disk = static_cast<DiskObject&>(object);
      if (write ? !canWrite(disk.access) : !canRead(disk.access)) return refuse(ERROR_ACCESS_DENIED);
      if (write && overlapsMountedVolume(face, disk.disk, offset, length)) return refuse(ERROR_ACCESS_DENIED);
      Machine* machine = face.machine();
      const uint64_t size = machine && disk.disk < machine->disks.size() && machine->disks[disk.disk].media
                                ? machine->disks[disk.disk].media->byteSize()
                                : 0;
      return mediaTransfer(face, disk.disk, write, overlapped, offset, buffer, length, size);
    }
    case ObjectKind::Volume: {
      auto& handle = static_cast<VolumeObject&>(object);
      Volume* volume = handle.volume;
      if (volume == nullptr || volume->extents.empty()) return refuse(ERROR_INVALID_HANDLE);
      if (write ? !canWrite(handle.access) : !canRead(handle.access)) return refuse(ERROR_ACCESS_DENIED);
      if (write && !volume->locked && !volume->dismounted) return refuse(ERROR_ACCESS_DENIED);
      if (volume->locked && !handle.holdsLock) return refuse(ERROR_ACCESS_DENIED);
      const VolumeExtent& extent = volume->extents.front();
      if (offset + length > extent.length) return refuse(ERROR_SECTOR_NOT_FOUND);
      return mediaTransfer(face, extent.disk, write, overlapped, extent.offset + offset, buffer, length,
                           extent.offset + extent.length);
    }
    case ObjectKind::File: {
      auto& file = static_cast<FileObject&>(object);
      if (write ? !canWrite(file.access) : !canRead(file.access)) return refuse(ERROR_ACCESS_DENIED);
      if (file.volume == nullptr || file.node == nullptr) return refuse(ERROR_INVALID_HANDLE);
      if ((file.flags & FILE_FLAG_NO_BUFFERING) != 0 &&
          (offset % file.volume->bytesPerSector != 0 || length % file.volume->bytesPerSector != 0)) {
        return refuse(ERROR_INVALID_PARAMETER);
      }
      Transfer t;
      if (!file.volume->extents.empty()) {
        t.error = admitTransfer(face, file.volume->extents.front().disk, write, overlapped, &t.hung);
        if (t.hung || t.error != ERROR_SUCCESS) return t;
      }
      const BOOL ok = write ? fileWrite(face, file, offset, buffer, length, &t.done)
                            : fileRead(face, file, offset, buffer, length, &t.done);
      if (!ok) {
        t.error = GetLastError();
        t.immediate = t.error == ERROR_DISK_FULL || t.error == ERROR_INVALID_PARAMETER;
      }
      return t;
    }
    case ObjectKind::Pipe:
    default:
      return refuse(ERROR_INVALID_HANDLE);
  }
}

BOOL readOrWrite(HANDLE handle, bool write, uint8_t* buffer, DWORD length, LPDWORD done, LPOVERLAPPED overlapped) {
  Face& face = Face::instance();
  if (done != nullptr) *done = 0;
  auto object = face.find(handle);
  if (!object) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (object->kind == ObjectKind::Pipe) {
    return pipeTransfer(face, static_cast<PipeObject&>(*object), write, buffer, length, done);
  }
  if (object->kind != ObjectKind::Disk && object->kind != ObjectKind::Volume && object->kind != ObjectKind::File) {
    return fail(ERROR_INVALID_HANDLE, FALSE);
  }
  auto& io = static_cast<IoObject&>(*object);
  if (buffer == nullptr && length > 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const bool overlappedHandle = (io.flags & FILE_FLAG_OVERLAPPED) != 0;
  if (overlappedHandle && overlapped == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const uint64_t offset =
      overlapped != nullptr ? (static_cast<uint64_t>(overlapped->OffsetHigh) << 32) | overlapped->Offset : io.position;

  const Transfer t = transfer(face, io, write, overlappedHandle, offset, buffer, length);
  if (!overlappedHandle) {
    if (done != nullptr) *done = t.done;
    if (overlapped != nullptr && !t.immediate) {
      // A synchronous handle given an OVERLAPPED: the call returns when the
      // transfer is over, and the OVERLAPPED carries its outcome and has its
      // event set, as on Windows, so that waiting on it ends at once.
      overlapped->Internal = t.error;
      overlapped->InternalHigh = t.done;
      auto event = face.findAs<EventObject>(overlapped->hEvent, ObjectKind::Event);
      if (event) event->signaled = true;
    }
    if (t.error != ERROR_SUCCESS) return fail(t.error, FALSE);
    io.position = offset + t.done;
    return TRUE;
  }
  if (t.immediate) return fail(t.error, FALSE);
  std::shared_ptr<EventObject> event = face.findAs<EventObject>(overlapped->hEvent, ObjectKind::Event);
  if (event) event->signaled = false;
  overlapped->Internal = kPendingStatus;
  overlapped->InternalHigh = 0;
  PendingIo request;
  request.overlapped = overlapped;
  request.event = event;
  request.hung = t.hung;
  // Even a request that costs the device nothing completes a moment later,
  // so that the caller sees it pending first, as with a real disk.
  request.completeAtMs = face.nowMs() + kServiceMs;
  request.error = t.error;
  request.transferred = t.done;
  io.pending.push_back(request);
  return fail(ERROR_IO_PENDING, FALSE);
}

void complete(PendingIo& request, DWORD error, DWORD transferred) {
  request.overlapped->Internal = error;
  request.overlapped->InternalHigh = transferred;
  if (request.event) request.event->signaled = true;
}

IoObject* ioObject(Face& face, HANDLE handle) {
  auto object = face.find(handle);
  if (!object) return nullptr;
  if (object->kind != ObjectKind::Disk && object->kind != ObjectKind::Volume && object->kind != ObjectKind::File) {
    return nullptr;
  }
  return static_cast<IoObject*>(object.get());
}

// The earliest time a request feeding `event` completes, or false if none will.
bool nextCompletionFor(Face& face, const EventObject* event, uint64_t* at) {
  bool found = false;
  for (const auto& entry : face.objects()) {
    const auto kind = entry.second->kind;
    if (kind != ObjectKind::Disk && kind != ObjectKind::Volume && kind != ObjectKind::File) continue;
    for (const auto& request : static_cast<IoObject&>(*entry.second).pending) {
      if (request.hung || request.event.get() != event) continue;
      if (!found || request.completeAtMs < *at) *at = request.completeAtMs;
      found = true;
    }
  }
  return found;
}

uint64_t deviceSize(Face& face, Object& object) {
  Machine* machine = face.machine();
  switch (object.kind) {
    case ObjectKind::Disk: {
      auto& disk = static_cast<DiskObject&>(object);
      if (machine && disk.disk < machine->disks.size() && machine->disks[disk.disk].media) {
        return machine->disks[disk.disk].media->byteSize();
      }
      return 0;
    }
    case ObjectKind::Volume: {
      auto& volume = static_cast<VolumeObject&>(object);
      return volume.volume && !volume.volume->extents.empty() ? volume.volume->extents.front().length : 0;
    }
    case ObjectKind::File: {
      auto& file = static_cast<FileObject&>(object);
      return file.node ? file.node->size : 0;
    }
    default:
      return 0;
  }
}

bool movePointer(HANDLE handle, int64_t distance, DWORD method, uint64_t* result) {
  Face& face = Face::instance();
  IoObject* io = ioObject(face, handle);
  if (io == nullptr) return fail(ERROR_INVALID_HANDLE, false);
  int64_t base = 0;
  switch (method) {
    case FILE_BEGIN:
      base = 0;
      break;
    case FILE_CURRENT:
      base = static_cast<int64_t>(io->position);
      break;
    case FILE_END:
      base = static_cast<int64_t>(deviceSize(face, *io));
      break;
    default:
      return fail(ERROR_INVALID_PARAMETER, false);
  }
  const int64_t target = base + distance;
  if (target < 0) return fail(static_cast<DWORD>(131), false);  // ERROR_NEGATIVE_SEEK
  io->position = static_cast<uint64_t>(target);
  *result = io->position;
  return true;
}

}  // namespace

DWORD admitTransfer(Face& face, size_t diskIndex, bool write, bool overlapped, bool* hung) {
  *hung = false;
  Machine* machine = face.machine();
  if (machine == nullptr || diskIndex >= machine->disks.size()) return ERROR_INVALID_HANDLE;
  Disk& disk = machine->disks[diskIndex];
  const uint8_t opcode = write ? 0x2A : 0x28;
  if (overlapped) {
    for (const auto& faults : disk.faultPath) {
      if (!faults || faults->vanished()) continue;
      const FaultPlan& plan = faults->plan();
      const bool applies =
          plan.opcodes.empty() || std::find(plan.opcodes.begin(), plan.opcodes.end(), opcode) != plan.opcodes.end();
      if (plan.hang && applies) {
        *hung = true;
        return ERROR_SUCCESS;
      }
    }
  }
  return completionError(disk.admitRawIo(write, 30));
}

void settlePending(Face& face) {
  const uint64_t now = face.nowMs();
  for (const auto& entry : face.objects()) {
    const auto kind = entry.second->kind;
    if (kind != ObjectKind::Disk && kind != ObjectKind::Volume && kind != ObjectKind::File) continue;
    auto& pending = static_cast<IoObject&>(*entry.second).pending;
    for (auto it = pending.begin(); it != pending.end();) {
      if (!it->hung && it->completeAtMs <= now) {
        complete(*it, it->error, it->transferred);
        it = pending.erase(it);
      } else {
        ++it;
      }
    }
  }
}

}  // namespace windows
}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
  return sim::windows::readOrWrite(file, false, static_cast<uint8_t*>(buffer), toRead, read, overlapped);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
  // The transfer only reads from a buffer that is written to; the cast is for
  // the shared path.
  return sim::windows::readOrWrite(file, true, static_cast<uint8_t*>(const_cast<void*>(buffer)), toWrite, written,
                                   overlapped);
}

DWORD SetFilePointer(HANDLE file, LONG distanceLow, PLONG distanceHigh, DWORD moveMethod) {
  int64_t distance = distanceLow;
  if (distanceHigh != nullptr) {
    distance = static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(*distanceHigh)) << 32) |
                                    static_cast<uint32_t>(distanceLow));
  }
  uint64_t result = 0;
  if (!sim::windows::movePointer(file, distance, moveMethod, &result)) return INVALID_SET_FILE_POINTER;
  if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(result >> 32);
  // A position whose low half is 0xFFFFFFFF is told apart by a clear error.
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(result);
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPointer, DWORD moveMethod) {
  uint64_t result = 0;
  if (!sim::windows::movePointer(file, distance.QuadPart, moveMethod, &result)) return FALSE;
  if (newPointer != nullptr) newPointer->QuadPart = static_cast<LONGLONG>(result);
  return TRUE;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
  Face& face = Face::instance();
  sim::windows::IoObject* io = sim::windows::ioObject(face, file);
  if (io == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (size == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  size->QuadPart = static_cast<LONGLONG>(sim::windows::deviceSize(face, *io));
  return TRUE;
}

BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait) {
  using namespace sim::windows;
  Face& face = Face::instance();
  IoObject* io = ioObject(face, file);
  if (io == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (overlapped == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  settlePending(face);
  if (overlapped->Internal == kPendingStatus) {
    auto it = std::find_if(io->pending.begin(), io->pending.end(),
                           [&](const PendingIo& request) { return request.overlapped == overlapped; });
    if (it == io->pending.end()) return fail(ERROR_INVALID_PARAMETER, FALSE);
    if (!wait || it->hung) return fail(ERROR_IO_INCOMPLETE, FALSE);
    face.machine()->clock().advanceTo(it->completeAtMs);
    settlePending(face);
  }
  if (transferred != nullptr) *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  if (overlapped->Internal != ERROR_SUCCESS) return fail(static_cast<DWORD>(overlapped->Internal), FALSE);
  return TRUE;
}

BOOL CancelIo(HANDLE file) {
  using namespace sim::windows;
  Face& face = Face::instance();
  IoObject* io = ioObject(face, file);
  if (io == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  settlePending(face);
  for (auto& request : io->pending) complete(request, ERROR_OPERATION_ABORTED, 0);
  io->pending.clear();
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  using namespace sim::windows;
  Face& face = Face::instance();
  auto object = face.find(handle);
  if (!object) return fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
  settlePending(face);
  if (object->kind == ObjectKind::Process) {
    DWORD code = STILL_ACTIVE;
    if (GetExitCodeProcess(handle, &code) && code != STILL_ACTIVE) return WAIT_OBJECT_0;
    // A child runs until its output is read; waiting for it can't end here.
    if (milliseconds == INFINITE) return fail(ERROR_TIMEOUT, WAIT_FAILED);
    face.advanceMs(milliseconds);
    return WAIT_TIMEOUT;
  }
  if (object->kind != ObjectKind::Event) return fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
  auto& event = static_cast<EventObject&>(*object);
  auto signalled = [&event]() {
    if (!event.signaled) return false;
    if (!event.manualReset) event.signaled = false;
    return true;
  };
  if (signalled()) return WAIT_OBJECT_0;
  uint64_t at = 0;
  const uint64_t now = face.nowMs();
  if (nextCompletionFor(face, &event, &at) && (milliseconds == INFINITE || at <= now + milliseconds)) {
    face.machine()->clock().advanceTo(at);
    settlePending(face);
    if (signalled()) return WAIT_OBJECT_0;
  }
  if (milliseconds == INFINITE) return fail(ERROR_TIMEOUT, WAIT_FAILED);
  face.advanceMs(milliseconds);
  settlePending(face);
  return signalled() ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

}  // namespace api
}  // namespace sim
