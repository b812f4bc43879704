// The built-in machine: seven disks of the kinds the module meets in the
// field, each with its own identity, on sparse media. The system disk (hdd0)
// and the eMMC device carry partitions and a volume each.
#include "sim/machine.h"

namespace sim {

const char* Machine::defaultMachineJson() {
  return R"JSON({
  "name": "default",
  "disks": [
    {
      "name": "hdd0",
      "kind": "ata",
      "bus": "sata",
      "profile": {
        "model": "WDC WD10EZEX-08WN4A0",
        "serial": "WD-WCC6Y3KL5627",
        "firmware": "01.01A01",
        "capacitySectors": 1953525168,
        "physicalSectorExponent": 3,
        "rotationRate": 7200,
        "bufferSize": 0,
        "wwn": "0x50014EE2B5C3A1D7",
        "formFactor": 2,
        "sataRevision": "3.0",
        "majorVersion": 2040,
        "minorVersion": 31,
        "temperatureCelsius": 36,
        "powerOnHours": 18342,
        "smart": {
          "shortTestMinutes": 2,
          "extendedTestMinutes": 112,
          "shortTestSpan": 200000000,
          "selfTestStatus": 115,
          "attributes": [
            {"id": 1, "flags": 47, "value": 200, "worst": 200, "raw": 14, "threshold": 51},
            {"id": 3, "flags": 39, "value": 175, "worst": 171, "raw": 4233, "threshold": 21},
            {"id": 4, "flags": 50, "value": 99, "worst": 99, "raw": 1287, "threshold": 0},
            {"id": 5, "flags": 51, "value": 200, "worst": 200, "raw": 0, "threshold": 140},
            {"id": 7, "flags": 46, "value": 200, "worst": 200, "raw": 0, "threshold": 0},
            {"id": 9, "flags": 50, "value": 75, "worst": 75, "raw": 18342, "threshold": 0},
            {"id": 10, "flags": 50, "value": 100, "worst": 253, "raw": 0, "threshold": 0},
            {"id": 12, "flags": 50, "value": 99, "worst": 99, "raw": 1279, "threshold": 0},
            {"id": 192, "flags": 50, "value": 200, "worst": 200, "raw": 61, "threshold": 0},
            {"id": 193, "flags": 50, "value": 198, "worst": 198, "raw": 6745, "threshold": 0},
            {"id": 194, "flags": 34, "value": 107, "worst": 96, "raw": 36, "threshold": 0},
            {"id": 196, "flags": 50, "value": 200, "worst": 200, "raw": 0, "threshold": 0},
            {"id": 197, "flags": 50, "value": 200, "worst": 200, "raw": 2, "threshold": 0},
            {"id": 198, "flags": 48, "value": 100, "worst": 253, "raw": 0, "threshold": 0},
            {"id": 199, "flags": 50, "value": 200, "worst": 200, "raw": 0, "threshold": 0},
            {"id": 200, "flags": 8, "value": 200, "worst": 200, "raw": 3, "threshold": 0}
          ],
          "selfTestLog": [
            {"subcommand": 1, "status": 0, "hours": 17990},
            {"subcommand": 2, "status": 115, "hours": 18320, "failingLba": 193536017}
          ],
          "errorLog": [
            {"command": 37, "lba": 193536017, "count": 8, "error": 64, "status": 81, "hours": 18311},
            {"command": 37, "lba": 257011330, "count": 8, "error": 64, "status": 81, "hours": 18312}
          ],
          "errorCount": 2
        }
      },
      "faults": {"unreadableSectors": [193536017, 257011330]},
      "partitions": {"scheme": "gpt", "entries": [
        {"type": "c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "startLba": 2048, "sectorCount": 204800, "name": "EFI"},
        {"type": "e3c9e316-0b5c-4db8-817d-f92df00215ae", "startLba": 206848, "sectorCount": 32768},
        {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 239616, "sectorCount": 1048576000,
         "name": "Basic data partition"}]},
      "volumes": [{"partition": 3, "letter": "C", "label": "Windows", "serial": "5E1A7C02", "fileSystem": "NTFS",
                   "freeBytes": 322122547200}]
    },
    {
      "name": "ssd0",
      "kind": "ata",
      "bus": "sata",
      "profile": {
        "model": "CT500MX500SSD1",
        "serial": "1904E1E4A6B2",
        "firmware": "M3CR023",
        "capacitySectors": 976773168,
        "physicalSectorExponent": 3,
        "rotationRate": 1,
        "trim": true,
        "wwn": "0x500A0751E1E4A6B2",
        "formFactor": 3,
        "sataRevision": "3.2",
        "sectorsWritten": 9461927531,
        "majorVersion": 4088,
        "minorVersion": 0,
        "temperatureCelsius": 33,
        "powerOnHours": 9120,
        "smart": {
          "shortTestMinutes": 2,
          "extendedTestMinutes": 30,
          "offlineCapability": 123,
          "attributes": [
            {"id": 1, "flags": 47, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 5, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 10},
            {"id": 9, "flags": 50, "value": 100, "worst": 100, "raw": 9120, "threshold": 0},
            {"id": 12, "flags": 50, "value": 100, "worst": 100, "raw": 842, "threshold": 0},
            {"id": 171, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 172, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 173, "flags": 50, "value": 97, "worst": 97, "raw": 46, "threshold": 0},
            {"id": 174, "flags": 50, "value": 100, "worst": 100, "raw": 71, "threshold": 0},
            {"id": 180, "flags": 51, "value": 0, "worst": 0, "raw": 52, "threshold": 0},
            {"id": 184, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 187, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 194, "flags": 34, "value": 67, "worst": 51, "raw": 33, "threshold": 0},
            {"id": 196, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 197, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 198, "flags": 48, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 199, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 202, "flags": 48, "value": 97, "worst": 97, "raw": 3, "threshold": 1},
            {"id": 206, "flags": 14, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 246, "flags": 50, "value": 100, "worst": 100, "raw": 9461927531, "threshold": 0},
            {"id": 247, "flags": 50, "value": 100, "worst": 100, "raw": 296340621, "threshold": 0},
            {"id": 248, "flags": 50, "value": 100, "worst": 100, "raw": 208472390, "threshold": 0}
          ],
          "selfTestLog": [
            {"subcommand": 1, "status": 0, "hours": 9001}
          ]
        }
      }
    },
    {
      "name": "nvme0",
      "kind": "nvme",
      "bus": "nvme",
      "profile": {
        "model": "Samsung SSD 970 EVO Plus 1TB",
        "serial": "S4EWNX0R512345B",
        "firmware": "2B2QEXM7",
        "eui64": "0x002538581B40C0DE",
        "warningTemperatureKelvin": 358,
        "capacitySectors": 1953525168,
        "health": {"compositeTemperatureKelvin": 311, "percentageUsed": 2, "powerOnHours": 5310}
      }
    },
    {
      "name": "sas0",
      "kind": "scsi",
      "bus": "sas",
      "profile": {
        "vendor": "SEAGATE",
        "product": "ST4000NM0025",
        "revision": "E001",
        "serial": "ZC1A2B3C0000R8141VBK",
        "wwn": "0x5000C500A1B2C3D4",
        "capacitySectors": 7814037168,
        "rotationRate": 7200,
        "formFactor": 2,
        "temperatureCelsius": 34,
        "referenceTemperatureCelsius": 68,
        "iecFlags": 16,
        "powerOnHours": 30544,
        "errorCounters": {
          "write": {"correctedFast": 0, "correctedDelayed": 0, "retries": 0, "corrected": 0,
                    "algorithmInvocations": 0, "bytesProcessed": 81604378624000, "uncorrected": 0},
          "read": {"correctedFast": 1803311, "correctedDelayed": 0, "retries": 0, "corrected": 1803311,
                   "algorithmInvocations": 0, "bytesProcessed": 219902325555200, "uncorrected": 0},
          "verify": {"correctedFast": 12, "correctedDelayed": 0, "retries": 0, "corrected": 12,
                     "algorithmInvocations": 0, "bytesProcessed": 4398046511104, "uncorrected": 0},
          "nonMedium": 3
        },
        "backgroundScan": {"status": 0, "scansPerformed": 127, "progress": 0, "mediumScansPerformed": 127},
        "selfTest": {
          "shortSeconds": 90,
          "extendedSeconds": 30000,
          "log": [{"code": 1, "result": 0, "hours": 30100}]
        }
      }
    },
    {
      "name": "usb0",
      "kind": "ata",
      "bus": "usb",
      "profile": {
        "model": "WDC WD20SDRW-11VUUS0",
        "serial": "WD-WX21A17R4PLD",
        "firmware": "01.01A01",
        "capacitySectors": 3907029168,
        "physicalSectorExponent": 3,
        "rotationRate": 5400,
        "wwn": "0x50014EE20F4C3B2A",
        "formFactor": 3,
        "sataRevision": "3.1",
        "temperatureCelsius": 39,
        "powerOnHours": 2210,
        "smart": {
          "attributes": [
            {"id": 1, "flags": 47, "value": 200, "worst": 200, "raw": 0, "threshold": 51},
            {"id": 5, "flags": 51, "value": 200, "worst": 200, "raw": 0, "threshold": 140},
            {"id": 9, "flags": 50, "value": 97, "worst": 97, "raw": 2210, "threshold": 0},
            {"id": 194, "flags": 34, "value": 111, "worst": 100, "raw": 39, "threshold": 0},
            {"id": 197, "flags": 50, "value": 200, "worst": 200, "raw": 0, "threshold": 0}
          ]
        }
      },
      "bridge": {"type": "sat", "vendor": "WD", "product": "Elements 25A2", "revision": "1021",
                 "serial": "575836314137375234504C44"}
    },
    {
      "name": "usb1",
      "kind": "ata",
      "bus": "usb",
      "profile": {
        "model": "ST1000LM035-1RK172",
        "serial": "WL1DM4X7",
        "firmware": "LCM2",
        "capacitySectors": 1953525168,
        "physicalSectorExponent": 3,
        "rotationRate": 5400,
        "wwn": "0x5000C500B3A4C5D6",
        "formFactor": 3,
        "sataRevision": "3.1",
        "sataGeneration": 3,
        "temperatureCelsius": 31,
        "powerOnHours": 644,
        "smart": {
          "attributes": [
            {"id": 1, "flags": 15, "value": 81, "worst": 64, "raw": 122184064, "threshold": 6},
            {"id": 3, "flags": 3, "value": 99, "worst": 99, "raw": 0, "threshold": 0},
            {"id": 4, "flags": 50, "value": 100, "worst": 100, "raw": 212, "threshold": 20},
            {"id": 5, "flags": 51, "value": 100, "worst": 100, "raw": 0, "threshold": 36},
            {"id": 7, "flags": 15, "value": 80, "worst": 60, "raw": 98517044, "threshold": 30},
            {"id": 9, "flags": 50, "value": 100, "worst": 100, "raw": 644, "threshold": 0},
            {"id": 10, "flags": 19, "value": 100, "worst": 100, "raw": 0, "threshold": 97},
            {"id": 12, "flags": 50, "value": 100, "worst": 100, "raw": 208, "threshold": 20},
            {"id": 184, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 99},
            {"id": 187, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 188, "flags": 50, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 189, "flags": 58, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 190, "flags": 34, "value": 69, "worst": 55, "raw": 31, "threshold": 45},
            {"id": 191, "flags": 50, "value": 100, "worst": 100, "raw": 4, "threshold": 0},
            {"id": 192, "flags": 50, "value": 100, "worst": 100, "raw": 31, "threshold": 0},
            {"id": 193, "flags": 50, "value": 99, "worst": 99, "raw": 2915, "threshold": 0},
            {"id": 194, "flags": 34, "value": 31, "worst": 45, "raw": 31, "threshold": 0},
            {"id": 197, "flags": 18, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 198, "flags": 16, "value": 100, "worst": 100, "raw": 0, "threshold": 0},
            {"id": 199, "flags": 62, "value": 200, "worst": 200, "raw": 0, "threshold": 0},
            {"id": 240, "flags": 0, "value": 100, "worst": 253, "raw": 612, "threshold": 0},
            {"id": 241, "flags": 0, "value": 100, "worst": 253, "raw": 1811532004, "threshold": 0},
            {"id": 242, "flags": 0, "value": 100, "worst": 253, "raw": 2241357013, "threshold": 0}
          ]
        }
      },
      "bridge": {"type": "jmicron", "vendor": "JMicron", "product": "Generic", "revision": "0508",
                 "serial": "0123456789ABCDEF"}
    },
    {
      "name": "emmc0",
      "kind": "emmc",
      "bus": "mmc",
      "profile": {"capacitySectors": 244277248},
      "descriptor": {"vendorId": "", "productId": "BJTD4R", "productRevision": "", "serialNumber": "0x9d0a8a30"},
      "partitions": {"scheme": "mbr", "signature": 2880154539, "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 62914560}]},
      "volumes": [{"partition": 1, "letter": "D", "label": "DATA", "serial": "0C4F12D8", "fileSystem": "NTFS",
                   "freeBytes": 21474836480}]
    }
  ]
})JSON";
}

}  // namespace sim
