// The ordered transport list that the ATA and SCSI protocols share: the first
// transport owns the handle, a transport is listed once, and the one that
// answered moves to the front so the next command tries it first.
#pragma once

#include <list>
#include <memory>

#include "win32/win32.h"

template <class Bridge>
using TransportList = std::list<std::shared_ptr<Bridge>>;

// The handle of the first transport; null for an empty list.
template <class Bridge>
HANDLE firstTransportHandle(const TransportList<Bridge>& transports) {
  return transports.empty() ? nullptr : transports.front()->getHandle();
}

// Appends unless the same transport object is listed already.
template <class Bridge>
bool addTransportOnce(TransportList<Bridge>& transports, std::shared_ptr<Bridge> transport) {
  for (const auto& present : transports) {
    if (present.get() == transport.get()) return false;
  }
  transports.push_back(std::move(transport));
  return true;
}

// Moves the transport at `answered` to the front, keeping the others' order.
template <class Bridge>
void promoteTransport(TransportList<Bridge>& transports, typename TransportList<Bridge>::iterator answered) {
  transports.splice(transports.begin(), transports, answered);
}
