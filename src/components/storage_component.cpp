// A disk's component: ownership of its protocol and partitions, and the small
// description helpers the manager and the describe routines use.
#include "components/storage_component.h"

StorageComponent::StorageComponent(std::unique_ptr<StorageProtocol> storageProtocol,
                                   std::unique_ptr<DiskPartitions> diskPartitions)
    : protocol(std::move(storageProtocol)), partitions(std::move(diskPartitions)) {}

// The protocol goes first, then the partition description.
StorageComponent::~StorageComponent() {
  protocol.reset();
  partitions.reset();
}

std::string StorageComponent::getUdi() const {
  for (const DetailEntry& entry : details) {
    if (entry.key == "UDI") return entry.value;
  }
  return std::string();
}

void StorageComponent::setDetail(size_t index, DetailEntry entry) {
  if (index < details.size()) details[index] = std::move(entry);
}

void StorageComponent::addDetail(const std::string& key, const std::string& value) {
  addDetail(details, key, value);
}

void StorageComponent::addDetail(std::vector<DetailEntry>& target, const std::string& key,
                                 const std::string& value) {
  if (!value.empty()) target.push_back({key, value});
}
