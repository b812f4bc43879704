// What every scanner does on construction and destruction: the partition
// name tables first, then the device service, given back at the end.
#include "scanner/storage_scanner.h"

// The tables are members and so are built before the body runs.
StorageScanner::StorageScanner() { deviceService = get_device_scanner(); }

// The tables go after the body, with the other members.
StorageScanner::~StorageScanner() { release_device_scanner(deviceService); }
