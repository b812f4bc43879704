// The bodies of the fuzz targets, one per kind of outside data. The libFuzzer
// programs beside this file call them, and harness_test.cpp replays the inputs
// that once found a fault (fuzz/regressions/<target>/) through the same
// functions, so a fix stays fixed in the ordinary test run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzing {

// A simulated disk behind one of the transports, whose answer to each
// command is drawn from the input (sim/fuzzed_device.h), under discovery,
// description and one of the tests. Byte 0 chooses the transport, byte 1 the
// test, the rest drives the device.
void runFuzzedDevice(const uint8_t* data, size_t size);

// The same disks, with every data-in answer replaced, in order, by the next
// bytes of the input (IDENTIFY, SMART data and logs, INQUIRY, VPD, log and
// mode pages, READ CAPACITY...). Bytes 0 and 1 as above.
void runReplacedAnswers(const uint8_t* data, size_t size);

// Sense data as the module reads it: the fixed and descriptor formats and
// the ATA Status Return descriptor of a SAT pass-through.
void runSenseData(const uint8_t* data, size_t size);

// The first sectors of a disk (and the last 33, for a backup GPT) from the
// input: MBR with extended chains, GPT with any CRC and entry count, read back
// by the layout query and the module's partition discovery.
void runPartitionTables(const uint8_t* data, size_t size);

// A machine description, loaded, installed and discovered.
void runMachineDescription(const uint8_t* data, size_t size);

// Test parameters: lines "SECTION.KEY=VALUE" given to every test.
void runTestParameters(const uint8_t* data, size_t size);

// Lines of the file-system checker's output, as the check reads them.
void runCheckerOutput(const uint8_t* data, size_t size);

// hwc_cli's arguments, separated by NUL bytes.
void runCommandLine(const uint8_t* data, size_t size);

// Values of management instances (WMI) from the input, read through the
// module's queries.
void runManagementValues(const uint8_t* data, size_t size);

// Seeds: the number of transports (byte 0's range) and of activities (byte
// 1's), and the data-in answers the real simulated devices give, in order,
// to one activity on one transport (at most `limit` bytes), which make the
// run of runReplacedAnswers the same as the undisturbed one.
size_t transportCount();
size_t activityCount();
std::vector<uint8_t> recordAnswers(uint8_t transport, uint8_t activity, size_t limit);

struct Target {
  const char* name;
  void (*run)(const uint8_t*, size_t);
};
// Every target, by the name of its folders under fuzz/corpus and fuzz/regressions.
const std::vector<Target>& targets();

}  // namespace fuzzing
