// Simulated machines with RAID controllers, for the tests of the controller
// stacks and of discovery: disks behind a controller are hidden from the
// operating system and reached through the controller only.
#pragma once

#include <string>
#include <vector>

namespace raid_testing {

// An ATA disk; `extra` goes into the disk object (e.g. `, "hidden": true`).
inline std::string ataDisk(const std::string& name, const std::string& model, const std::string& serial,
                           const std::string& extra = "", const std::string& profileExtra = "") {
  return R"({"name": ")" + name + R"(", "kind": "ata", "profile": {"model": ")" + model + R"(", "serial": ")" +
         serial + R"(", "firmware": "FW01", "capacitySectors": 2097152)" + profileExtra + "}" + extra + "}";
}

// A SAS disk.
inline std::string sasDisk(const std::string& name, const std::string& product, const std::string& serial,
                           const std::string& extra = "") {
  return R"({"name": ")" + name + R"(", "kind": "scsi", "profile": {"vendor": "SEAGATE", "product": ")" + product +
         R"(", "revision": "0004", "serial": ")" + serial + R"(", "capacitySectors": 4194304})" + extra + "}";
}

inline std::string joinList(const std::vector<std::string>& items) {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) text += (i ? ", " : "") + items[i];
  return text;
}

// A machine of `disks` with the machine-level keys in `rest` (e.g.
// `"controllers": [...]`).
inline std::string machine(const std::vector<std::string>& disks, const std::string& rest = "") {
  return R"({"name": "raid case", "disks": [)" + joinList(disks) + "]" + (rest.empty() ? "" : ", " + rest) + "}";
}

// One Intel chipset RAID adapter with a SATA drive on phy 0 and a SAS drive
// on phy 1, the disks "m0" and "m1".
inline std::string csmiController(const std::string& deviceId = "2826", const std::string& phys =
                                      R"([{"protocol": "sata", "disk": "m0"}, {"protocol": "sas", "disk": "m1"}])") {
  return R"({"vendorId": "8086", "deviceId": ")" + deviceId +
         R"(", "friendlyName": "Intel(R) C600 RAID", "biosVersion": [3, 1, 0, 1012], "phys": )" + phys + "}";
}

inline std::string csmiMachine(const std::vector<std::string>& visible = {}) {
  std::vector<std::string> disks = visible;
  disks.push_back(ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB", R"(, "hidden": true)"));
  disks.push_back(sasDisk("m1", "ST600MM0006", "S0M1X2Y3", R"(, "hidden": true)"));
  return machine(disks, R"("controllers": [)" + csmiController() + "]");
}

}  // namespace raid_testing
