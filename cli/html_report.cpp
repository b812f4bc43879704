// The HTML report: the machine and its disks, each test's verdict in words,
// and the pictures (surface map, seek-time histogram, self-test timeline,
// SMART verdict). Everything is escaped on the way out; the page carries no
// script at all, so there is nothing to fail in a browser's console.
#include "html_report.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <sstream>

#include "messages.h"
#include "module_storage/result_codes.h"
#include "report.h"

namespace hwc {
namespace {

constexpr size_t kZones = 100;  // one cell of the surface map is 1% of the disk
constexpr int kMapColumns = 20;
constexpr int kCell = 26;
// Used for nothing else on the page, so that a cell with a failed read can be
// told apart from any other red in a picture of it.
const std::string kUnreadableFill = "#d50000";

std::string number(uint64_t value) {
  std::string digits = std::to_string(value);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

std::string fixed(double value, int decimals) {
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), "%.*f", decimals, value);
  return buffer;
}

// Milliseconds with three significant digits: "0.0412 ms", "12.3 ms", "1,204 ms".
std::string milliseconds(double value) {
  if (value >= 1000.0) return number(static_cast<uint64_t>(value + 0.5)) + " ms";
  if (value >= 100.0) return fixed(value, 0) + " ms";
  if (value >= 10.0) return fixed(value, 1) + " ms";
  if (value >= 1.0) return fixed(value, 2) + " ms";
  if (value >= 0.1) return fixed(value, 3) + " ms";
  return fixed(value, 4) + " ms";
}

std::string seconds(double value) {
  if (value < 0) return "";
  if (value >= 100.0) return fixed(value, 0) + " s";
  if (value >= 1.0) return fixed(value, 1) + " s";
  return fixed(value * 1000.0, 0) + " ms";
}

std::string utcText(uint64_t unixSeconds) {
  std::time_t when = static_cast<std::time_t>(unixSeconds);
  std::tm parts {};
#ifdef _WIN32
  if (gmtime_s(&parts, &when) != 0) return "";
#else
  if (gmtime_r(&when, &parts) == nullptr) return "";
#endif
  char buffer[64];
  std::strftime(buffer, sizeof(buffer), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return buffer;
}

// A colour from green (fast) through yellow to red-orange (slow), for a
// position from 0 to 1 on the scale.
std::string scaleColour(double position) {
  position = std::clamp(position, 0.0, 1.0);
  struct Stop {
    double at;
    int r, g, b;
  };
  static const Stop kStops[] = {{0.0, 0x2e, 0x7d, 0x32}, {0.5, 0xf9, 0xd2, 0x3c}, {1.0, 0xe6, 0x51, 0x00}};
  const Stop* low = &kStops[0];
  const Stop* high = &kStops[2];
  if (position <= 0.5) {
    high = &kStops[1];
  } else {
    low = &kStops[1];
  }
  const double t = (position - low->at) / (high->at - low->at);
  auto mix = [t](int a, int b) { return static_cast<int>(std::lround(a + (b - a) * t)); };
  char buffer[16];
  std::snprintf(buffer, sizeof(buffer), "#%02x%02x%02x", mix(low->r, high->r), mix(low->g, high->g),
                mix(low->b, high->b));
  return buffer;
}

const char* verdictClass(const TestRecord& record) {
  if (record.outcome == RunOutcome::NotRun) return "notrun";
  if (record.outcome == RunOutcome::NotSupported) return "na";
  if (record.outcome == RunOutcome::Error) return "invalid";
  switch (record.result) {
    case SUCCESS: return "pass";
    case FAILED: return "fail";
    case WARNING: return "warn";
    case ABORTED: return "abort";
    case NOT_APPLICABLE: return "na";
    default: break;
  }
  return "invalid";
}

// What the run said last, in words, with the module's error for a throw.
std::string messageText(const TestRecord& record) {
  if (record.outcome == RunOutcome::Error) return record.errorText;
  const std::string last = record.lastMessage();
  return last.empty() ? "" : describeMessage(last);
}

// One sentence on the outcome, for people who read no tables.
std::string plainVerdict(const TestRecord& record) {
  const std::string test = textOf(record.testKey);
  const std::string message = messageText(record);
  std::string sentence;
  switch (record.outcome) {
    case RunOutcome::NotSupported:
      return "The " + test + " does not apply to this disk, so it was not run.";
    case RunOutcome::NotRun:
      return "The " + test + " was not run: the session was stopped before it.";
    case RunOutcome::Error:
      return "The " + test + " could not finish: the module reported an error (" + message + ").";
    case RunOutcome::Ran:
      break;
  }
  switch (record.result) {
    case SUCCESS: sentence = "The " + test + " passed."; break;
    case FAILED: sentence = "The " + test + " failed: the disk did not do what the test asked."; break;
    case WARNING: sentence = "The " + test + " passed with a warning."; break;
    case ABORTED: sentence = "The " + test + " was aborted before it could finish."; break;
    case NOT_APPLICABLE: sentence = "The " + test + " could not be done on this disk."; break;
    default: sentence = "The " + test + " gave no valid result."; break;
  }
  if (!message.empty()) sentence += " " + message + ".";
  return sentence;
}

class Page {
 public:
  void raw(const std::string& text) { out_ << text; }
  void text(const std::string& text) { out_ << htmlEscape(text); }
  void element(const char* tag, const std::string& content, const char* cls = nullptr) {
    out_ << '<' << tag;
    if (cls != nullptr) out_ << " class=\"" << cls << '"';
    out_ << '>' << htmlEscape(content) << "</" << tag << '>';
  }
  std::string str() const { return out_.str(); }

 private:
  std::ostringstream out_;
};

const char* kStyle = R"(
body{font-family:"DejaVu Sans",Arial,Helvetica,sans-serif;margin:16px 24px;color:#1b1b1b;background:#fff;font-size:14px}
h1{font-size:22px;margin:0 0 4px}
h2{font-size:18px;margin:22px 0 8px;border-bottom:2px solid #ccd;padding-bottom:3px}
h3{font-size:15px;margin:16px 0 6px}
p.meta{color:#444;margin:2px 0}
table{border-collapse:collapse;margin:4px 0 8px}
th,td{border:1px solid #ccd;padding:3px 7px;text-align:left;vertical-align:top}
td.num{white-space:nowrap}
th{background:#eef0f6}
td.num{text-align:right;font-variant-numeric:tabular-nums}
.badge{display:inline-block;padding:1px 7px;border-radius:9px;font-weight:bold;color:#fff;white-space:nowrap}
.pass{background:#2e7d32}.fail{background:#c62828}.warn{background:#ef6c00}.abort{background:#6a1b9a}
.na{background:#78909c}.invalid{background:#5d4037}.notrun{background:#9e9e9e}
.good{color:#2e7d32;font-weight:bold}.bad{color:#c62828;font-weight:bold}.unknown{color:#666}
.row{display:flex;flex-wrap:wrap;gap:24px;align-items:flex-start}
figure{margin:0 0 8px}
figcaption{font-size:12px;color:#333;max-width:560px;margin-top:4px}
.note{font-size:12px;color:#444;max-width:900px}
.unreadable{color:#c62828;font-weight:bold}
)";

void deviceOverview(Page& page, const SessionFacts& session) {
  page.raw("<section id=\"disks\"><h2>Disks</h2>");
  if (session.devices.empty()) {
    page.element("p", "The module found no disk.");
    page.raw("</section>");
    return;
  }
  page.raw("<table><tr><th>#</th><th>Model</th><th>Kind</th><th>Bus</th><th>Size</th><th>Serial</th>"
           "<th>Health</th><th>Tests</th></tr>");
  for (const DeviceFacts& device : session.devices) {
    int passed = 0, failed = 0, other = 0;
    for (const TestRecord& record : session.records) {
      if (record.deviceIndex != device.index) continue;
      const std::string cls = verdictClass(record);
      if (cls == "pass" || cls == "warn") {
        ++passed;
      } else if (cls == "fail") {
        ++failed;
      } else {
        ++other;
      }
    }
    const Health health = healthOf(session.records, device.index);
    page.raw("<tr><td class=\"num\"><a href=\"#disk-" + std::to_string(device.index) + "\">" +
             std::to_string(device.index) + "</a></td><td>");
    page.text(device.model());
    page.raw("</td><td>");
    page.text(device.kind());
    page.raw("</td><td>");
    page.text(device.bus());
    page.raw("</td><td>");
    page.text(describeValue(device.detail("SIZE")));
    page.raw("</td><td>");
    page.text(device.detail("SERIAL"));
    page.raw("</td><td class=\"");
    page.raw(health == Health::Good ? "good" : health == Health::Failing ? "bad" : "unknown");
    page.raw("\">");
    page.text(healthText(health));
    page.raw("</td><td>");
    if (passed + failed + other == 0) {
      page.text("not tested");
    } else {
      page.text(std::to_string(passed) + " passed, " + std::to_string(failed) + " failed, " + std::to_string(other) +
                " other");
    }
    page.raw("</td></tr>");
  }
  page.raw("</table></section>");
}

struct BadSector {
  uint64_t lba;
  std::string testKey;
};

// The surface map: 100 cells of 1% of the disk each, in rows of 20, the first
// LBA at the top left. A cell's colour is the time the funnel seek spent in
// it; a cell where a read failed is red with a cross.
void surfaceMap(Page& page, const DeviceFacts& device, const std::vector<const TestRecord*>& records) {
  ZoneTimes zones;
  zones.milliseconds.assign(kZones, 0.0);
  zones.timed.assign(kZones, false);
  std::string timedBy;
  for (const TestRecord* record : records) {
    if (!isFunnelSeek(record->testKey)) continue;
    ZoneTimes one = funnelZoneTimes(*record, kZones);
    for (size_t z = 0; z < kZones; ++z) {
      zones.milliseconds[z] += one.milliseconds[z];
      zones.timed[z] = zones.timed[z] || one.timed[z];
    }
    if (std::find(one.timed.begin(), one.timed.end(), true) != one.timed.end()) {
      timedBy += (timedBy.empty() ? "" : " and ") + textOf(record->testKey);
    }
  }
  std::vector<BadSector> bad;
  for (const TestRecord* record : records) {
    for (uint64_t lba : badSectorsOf(*record)) {
      bool known = false;
      for (const BadSector& seen : bad) known = known || seen.lba == lba;
      if (!known) bad.push_back({lba, record->testKey});
    }
  }
  const uint64_t sectors = device.sectorCount();
  std::vector<std::vector<const BadSector*>> badInZone(kZones);
  std::vector<const BadSector*> unplaced;
  for (const BadSector& sector : bad) {
    if (sectors == 0 || sector.lba >= sectors) {
      unplaced.push_back(&sector);
      continue;
    }
    const size_t zone = static_cast<size_t>(static_cast<long double>(sector.lba) * kZones / sectors);
    badInZone[std::min(zone, kZones - 1)].push_back(&sector);
  }

  double low = 0, high = 0;
  bool any = false;
  for (size_t z = 0; z < kZones; ++z) {
    if (!zones.timed[z]) continue;
    low = any ? std::min(low, zones.milliseconds[z]) : zones.milliseconds[z];
    high = any ? std::max(high, zones.milliseconds[z]) : zones.milliseconds[z];
    any = true;
  }

  const int rows = static_cast<int>(kZones) / kMapColumns;
  const int left = 118;
  const int top = 8;
  const int width = left + kMapColumns * kCell + 12;
  const int legendTop = top + rows * kCell + 18;
  const int height = legendTop + 58;
  page.raw("<figure class=\"surface-map\" id=\"surface-map-" + std::to_string(device.index) + "\">");
  page.raw("<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" width=\"" + std::to_string(width) +
           "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) + " " +
           std::to_string(height) + "\" font-family=\"DejaVu Sans,Arial,sans-serif\" font-size=\"11\">");
  page.raw("<title>");
  page.text("Surface map of disk " + std::to_string(device.index));
  page.raw("</title>");
  for (int row = 0; row < rows; ++row) {
    const uint64_t firstLba = sectors == 0 ? 0 : static_cast<uint64_t>(static_cast<long double>(sectors) * row *
                                                                       kMapColumns / kZones);
    page.raw("<text x=\"" + std::to_string(left - 6) + "\" y=\"" + std::to_string(top + row * kCell + 17) +
             "\" text-anchor=\"end\">");
    page.text(sectors == 0 ? std::to_string(row * kMapColumns) + "%" : "LBA " + number(firstLba));
    page.raw("</text>");
  }
  for (size_t z = 0; z < kZones; ++z) {
    const int x = left + static_cast<int>(z % kMapColumns) * kCell;
    const int y = top + static_cast<int>(z / kMapColumns) * kCell;
    std::string fill = "#e0e0e0";
    std::string tip = "Zone " + std::to_string(z) + ": " + std::to_string(z) + "% to " + std::to_string(z + 1) +
                      "% of the disk";
    if (sectors != 0) {
      const uint64_t from = static_cast<uint64_t>(static_cast<long double>(sectors) * z / kZones);
      const uint64_t to = static_cast<uint64_t>(static_cast<long double>(sectors) * (z + 1) / kZones);
      tip += " (LBA " + number(from) + " to " + number(to == 0 ? 0 : to - 1) + ")";
    }
    if (zones.timed[z]) {
      fill = scaleColour(high > low ? (zones.milliseconds[z] - low) / (high - low) : 0.0);
      tip += "; funnel seek time " + milliseconds(zones.milliseconds[z]);
    } else {
      tip += "; not timed";
    }
    const bool failed = !badInZone[z].empty();
    if (failed) {
      fill = kUnreadableFill;
      for (const BadSector* sector : badInZone[z]) {
        tip += "; unreadable sector at LBA " + number(sector->lba) + " (" + textOf(sector->testKey) + ")";
      }
    }
    page.raw("<g class=\"zone" + std::string(failed ? " unreadable-zone" : "") + "\"><title>");
    page.text(tip);
    page.raw("</title><rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" +
             std::to_string(kCell - 2) + "\" height=\"" + std::to_string(kCell - 2) + "\" fill=\"" + fill +
             "\" stroke=\"" + (failed ? "#000" : "#fff") + "\" stroke-width=\"" + (failed ? "2" : "1") + "\"/>");
    if (failed) {
      const std::string x1 = std::to_string(x + 5), y1 = std::to_string(y + 5);
      const std::string x2 = std::to_string(x + kCell - 7), y2 = std::to_string(y + kCell - 7);
      page.raw("<path d=\"M" + x1 + " " + y1 + "L" + x2 + " " + y2 + "M" + x2 + " " + y1 + "L" + x1 + " " + y2 +
               "\" stroke=\"#fff\" stroke-width=\"3\" stroke-linecap=\"round\"/>");
    }
    page.raw("</g>");
  }
  // The legend: the colour scale, a cell not timed, a failed read.
  const int scaleWidth = 200;
  for (int i = 0; i < 20; ++i) {
    page.raw("<rect x=\"" + std::to_string(left + i * (scaleWidth / 20)) + "\" y=\"" + std::to_string(legendTop) +
             "\" width=\"" + std::to_string(scaleWidth / 20) + "\" height=\"12\" fill=\"" + scaleColour(i / 19.0) +
             "\"/>");
  }
  page.raw("<text x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(legendTop + 26) + "\">");
  page.text(any ? milliseconds(low) : "fast");
  page.raw("</text><text x=\"" + std::to_string(left + scaleWidth) + "\" y=\"" + std::to_string(legendTop + 26) +
           "\" text-anchor=\"end\">");
  page.text(any ? milliseconds(high) : "slow");
  page.raw("</text><text x=\"" + std::to_string(left - 6) + "\" y=\"" + std::to_string(legendTop + 10) +
           "\" text-anchor=\"end\">time per zone</text>");
  const int notTimedX = left + scaleWidth + 24;
  page.raw("<rect x=\"" + std::to_string(notTimedX) + "\" y=\"" + std::to_string(legendTop) +
           "\" width=\"12\" height=\"12\" fill=\"#e0e0e0\"/><text x=\"" + std::to_string(notTimedX + 17) +
           "\" y=\"" + std::to_string(legendTop + 10) + "\">not timed</text>");
  const int failedX = notTimedX + 100;
  page.raw("<rect x=\"" + std::to_string(failedX) + "\" y=\"" + std::to_string(legendTop) +
           "\" width=\"12\" height=\"12\" fill=\"" + kUnreadableFill + "\" stroke=\"#000\"/><path d=\"M" +
           std::to_string(failedX + 3) + " " + std::to_string(legendTop + 3) + "L" + std::to_string(failedX + 9) +
           " " + std::to_string(legendTop + 9) + "M" + std::to_string(failedX + 9) + " " +
           std::to_string(legendTop + 3) + "L" + std::to_string(failedX + 3) + " " + std::to_string(legendTop + 9) +
           "\" stroke=\"#fff\" stroke-width=\"2\"/><text x=\"" + std::to_string(failedX + 17) + "\" y=\"" +
           std::to_string(legendTop + 10) + "\">read failed</text>");
  page.raw("</svg><figcaption>");
  std::string caption = "Each cell is 1% of the disk's logical blocks, in order from the top left (LBA 0) to the "
                        "bottom right (the last LBA). ";
  if (any) {
    caption += "Its colour is the time the " + timedBy +
               " spent reading in that stretch of the disk, shared out from the time between the test's progress "
               "steps (the walk closes in from both ends, so each step crosses one stretch near the start and one "
               "near the end). Times are hwc_cli's own, measured between the module's progress events: on a "
               "simulated PC they show how long the simulation took, not the seek times of a real drive. ";
  } else {
    caption += "No funnel seek test ran on this disk, so no cell is timed. ";
  }
  caption += "A red cell with a cross holds a sector that a test could not read.";
  page.text(caption);
  page.raw("</figcaption></figure>");
  if (!bad.empty()) {
    page.raw("<ul class=\"unreadable-list\">");
    for (const BadSector& sector : bad) {
      page.raw("<li class=\"unreadable\">");
      std::string line = "Unreadable sector at LBA " + number(sector.lba) + ", found by the " + textOf(sector.testKey);
      if (sectors != 0 && sector.lba < sectors) {
        line += " (zone " +
                std::to_string(std::min<uint64_t>(kZones - 1, static_cast<uint64_t>(
                                                                  static_cast<long double>(sector.lba) * kZones / sectors))) +
                ")";
      } else {
        line += " (beyond the size the disk reports, so not on the map)";
      }
      page.text(line);
      page.raw("</li>");
    }
    page.raw("</ul>");
  }
}

void resultsTable(Page& page, const std::vector<const TestRecord*>& records) {
  page.raw("<table class=\"results\"><tr><th>Test</th><th>Result</th><th>What happened</th><th>Time</th></tr>");
  for (const TestRecord* record : records) {
    page.raw("<tr><td>");
    page.text(textOf(record->testKey));
    page.raw("</td><td><span class=\"badge " + std::string(verdictClass(*record)) + "\">");
    page.text(verdictText(*record));
    page.raw("</span></td><td>");
    page.text(plainVerdict(*record));
    page.raw("</td><td class=\"num\">");
    page.text(seconds(runSeconds(*record)));
    page.raw("</td></tr>");
  }
  page.raw("</table>");
}

void descriptionTable(Page& page, const DeviceFacts& device) {
  page.raw("<h3>Description</h3><table class=\"description\">");
  auto row = [&page](const std::string& label, const std::string& value) {
    page.raw("<tr><th>");
    page.text(label);
    page.raw("</th><td>");
    page.text(value);
    page.raw("</td></tr>");
  };
  row("Name", describeValue(device.description.name));
  row("Device id", device.id);
  for (const DetailEntry& entry : device.description.details) row(textOf(entry.key), describeValue(entry.value));
  for (const auto& attribute : device.description.attributes) {
    row(textOf(attribute.first), describeValue(attribute.second));
  }
  page.raw("</table>");
  if (device.sections.empty()) return;
  for (const DetailSection& section : device.sections) {
    page.raw("<table class=\"section\"><tr><th colspan=\"2\">");
    page.text(textOf(section.title));
    page.raw("</th></tr>");
    for (const DetailEntry& entry : section.entries) row(textOf(entry.key), describeValue(entry.value));
    page.raw("</table>");
  }
}

// A histogram of the time per percentage step of the seek tests, on a
// logarithmic axis: one hundredth of a test's reads per step.
void seekHistogram(Page& page, const TestRecord& record) {
  const std::vector<double> times = stepTimes(record);
  page.raw("<figure class=\"seek-histogram\">");
  if (times.empty()) {
    page.element("figcaption", textOf(record.testKey) + ": no progress steps to time (" + verdictText(record) + ").");
    page.raw("</figure>");
    return;
  }
  std::vector<double> sorted = times;
  std::sort(sorted.begin(), sorted.end());
  const double least = std::max(sorted.front(), 1e-4);
  const double most = std::max(sorted.back(), least);
  constexpr int kBins = 16;
  const double logLow = std::log10(least);
  const double logHigh = std::log10(most) + 1e-9;
  const double binWidth = std::max((logHigh - logLow) / kBins, 1e-9);
  std::vector<int> counts(kBins, 0);
  for (double value : times) {
    int bin = static_cast<int>((std::log10(std::max(value, least)) - logLow) / binWidth);
    counts[static_cast<size_t>(std::clamp(bin, 0, kBins - 1))] += 1;
  }
  const int tallest = *std::max_element(counts.begin(), counts.end());
  const int left = 40, top = 10, plotWidth = 480, plotHeight = 120, bar = plotWidth / kBins;
  const int width = left + plotWidth + 20, height = top + plotHeight + 40;
  page.raw("<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" width=\"" + std::to_string(width) +
           "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) + " " +
           std::to_string(height) + "\" font-family=\"DejaVu Sans,Arial,sans-serif\" font-size=\"10\"><title>");
  page.text("Time per step of the " + textOf(record.testKey));
  page.raw("</title>");
  page.raw("<line x1=\"" + std::to_string(left) + "\" y1=\"" + std::to_string(top + plotHeight) + "\" x2=\"" +
           std::to_string(left + plotWidth) + "\" y2=\"" + std::to_string(top + plotHeight) +
           "\" stroke=\"#333\"/><line x1=\"" + std::to_string(left) + "\" y1=\"" + std::to_string(top) +
           "\" x2=\"" + std::to_string(left) + "\" y2=\"" + std::to_string(top + plotHeight) + "\" stroke=\"#333\"/>");
  page.raw("<text x=\"" + std::to_string(left - 4) + "\" y=\"" + std::to_string(top + 8) + "\" text-anchor=\"end\">" +
           std::to_string(tallest) + "</text><text x=\"" + std::to_string(left - 4) + "\" y=\"" +
           std::to_string(top + plotHeight) + "\" text-anchor=\"end\">0</text>");
  for (int i = 0; i < kBins; ++i) {
    if (counts[static_cast<size_t>(i)] == 0) continue;
    const int h = std::max(1, counts[static_cast<size_t>(i)] * plotHeight / std::max(tallest, 1));
    const double from = std::pow(10.0, logLow + i * binWidth);
    const double to = std::pow(10.0, logLow + (i + 1) * binWidth);
    page.raw("<rect x=\"" + std::to_string(left + i * bar + 1) + "\" y=\"" + std::to_string(top + plotHeight - h) +
             "\" width=\"" + std::to_string(bar - 2) + "\" height=\"" + std::to_string(h) +
             "\" fill=\"#3f6fb5\"><title>");
    page.text(std::to_string(counts[static_cast<size_t>(i)]) + " steps took " + milliseconds(from) + " to " +
              milliseconds(to));
    page.raw("</title></rect>");
  }
  page.raw("<text x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(top + plotHeight + 14) + "\">");
  page.text(milliseconds(least));
  page.raw("</text><text x=\"" + std::to_string(left + plotWidth) + "\" y=\"" +
           std::to_string(top + plotHeight + 14) + "\" text-anchor=\"end\">");
  page.text(milliseconds(most));
  page.raw("</text><text x=\"" + std::to_string(left + plotWidth / 2) + "\" y=\"" +
           std::to_string(top + plotHeight + 30) + "\" text-anchor=\"middle\">time per step (logarithmic)</text>");
  page.raw("</svg><figcaption>");
  const double median = sorted[sorted.size() / 2];
  const double p90 = sorted[std::min(sorted.size() - 1, sorted.size() * 9 / 10)];
  page.text(textOf(record.testKey) + ": " + std::to_string(times.size()) +
            " steps, each one hundredth of the test's reads; median " + milliseconds(median) + ", 90th percentile " +
            milliseconds(p90) + ", slowest " + milliseconds(sorted.back()) + ". " + plainVerdict(record));
  page.raw("</figcaption></figure>");
}

// A self test as the host saw it: its percentage over time, then what it said.
void selfTestTimeline(Page& page, const TestRecord& record) {
  page.raw("<figure class=\"self-test\">");
  std::vector<std::pair<double, uint32_t>> points;
  if (record.outcome == RunOutcome::Ran && record.beganUs != 0) {
    for (const ProgressRecord& event : record.events) {
      if (event.atUs < record.beganUs) continue;
      points.push_back({static_cast<double>(event.atUs - record.beganUs) / 1e6, std::min<uint32_t>(event.percent, 100)});
    }
  }
  if (points.size() >= 2) {
    const double span = std::max(points.back().first, 1e-6);
    const int left = 40, top = 10, plotWidth = 480, plotHeight = 100;
    const int width = left + plotWidth + 20, height = top + plotHeight + 36;
    page.raw("<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" width=\"" + std::to_string(width) +
             "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) + " " +
             std::to_string(height) + "\" font-family=\"DejaVu Sans,Arial,sans-serif\" font-size=\"10\"><title>");
    page.text("Progress of the " + textOf(record.testKey));
    page.raw("</title><rect x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(top) + "\" width=\"" +
             std::to_string(plotWidth) + "\" height=\"" + std::to_string(plotHeight) +
             "\" fill=\"#f5f6fa\" stroke=\"#999\"/>");
    std::string path;
    for (const auto& point : points) {
      const int x = left + static_cast<int>(point.first / span * plotWidth);
      const int y = top + plotHeight - static_cast<int>(point.second * plotHeight / 100);
      path += (path.empty() ? "M" : " L") + std::to_string(x) + " " + std::to_string(y);
    }
    page.raw("<path d=\"" + path + "\" fill=\"none\" stroke=\"#3f6fb5\" stroke-width=\"2\"/>");
    page.raw("<text x=\"" + std::to_string(left - 4) + "\" y=\"" + std::to_string(top + 8) +
             "\" text-anchor=\"end\">100%</text><text x=\"" + std::to_string(left - 4) + "\" y=\"" +
             std::to_string(top + plotHeight) + "\" text-anchor=\"end\">0%</text>");
    page.raw("<text x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(top + plotHeight + 14) +
             "\">0 s</text><text x=\"" + std::to_string(left + plotWidth) + "\" y=\"" +
             std::to_string(top + plotHeight + 14) + "\" text-anchor=\"end\">");
    page.text(seconds(span));
    page.raw("</text><text x=\"" + std::to_string(left + plotWidth / 2) + "\" y=\"" +
             std::to_string(top + plotHeight + 30) + "\" text-anchor=\"middle\">time since the test began</text></svg>");
  }
  page.raw("<figcaption>");
  page.text(plainVerdict(record));
  page.raw("</figcaption>");
  // What the self test said on the way, with the percentage it had reached.
  std::vector<std::string> lines;
  uint32_t percent = 0;
  for (const ProgressRecord& event : record.events) {
    percent = std::min<uint32_t>(event.percent, 100);
    if (!event.key.empty()) lines.push_back(std::to_string(percent) + "%: " + describeMessage(event.key));
  }
  for (const LogRecord& line : record.log) lines.push_back(levelText(line.level) + ": " + describeMessage(line.message));
  if (!lines.empty()) {
    page.raw("<ul class=\"self-test-log\">");
    for (const std::string& line : lines) page.element("li", line);
    page.raw("</ul>");
  }
  page.raw("</figure>");
}

void messagesTable(Page& page, const std::vector<const TestRecord*>& records) {
  bool any = false;
  for (const TestRecord* record : records) any = any || !record->log.empty() || !record->questions.empty();
  if (!any) return;
  page.raw("<h3>Messages of the tests</h3><table class=\"messages\"><tr><th>Test</th><th>Kind</th><th>Message</th></tr>");
  for (const TestRecord* record : records) {
    for (const LogRecord& line : record->log) {
      page.raw("<tr><td>");
      page.text(textOf(record->testKey));
      page.raw("</td><td>");
      page.text(levelText(line.level));
      page.raw("</td><td>");
      page.text(describeMessage(line.message));
      page.raw("</td></tr>");
    }
    for (const QuestionRecord& question : record->questions) {
      page.raw("<tr><td>");
      page.text(textOf(record->testKey));
      page.raw("</td><td>question</td><td>");
      page.text(describeMessage(question.title) + ": " + describeMessage(question.text) + " - answered " +
                std::to_string(question.answer) + " (" + question.answeredBy + ")");
      page.raw("</td></tr>");
    }
  }
  page.raw("</table>");
}

void smartPanel(Page& page, const DeviceFacts& device, const std::vector<const TestRecord*>& records) {
  const TestRecord* status = nullptr;
  for (const TestRecord* record : records) {
    if (isSmartStatus(record->testKey) && record->outcome == RunOutcome::Ran) status = record;
  }
  if (status == nullptr) return;
  page.raw("<h3>SMART</h3><div class=\"smart\">");
  std::string verdict;
  const char* cls = "unknown";
  if (status->outcome == RunOutcome::Ran && status->result == SUCCESS) {
    verdict = "No attribute is at or below its failure threshold: the drive's own health check passed.";
    cls = "good";
  } else if (status->outcome == RunOutcome::Ran && status->result == FAILED) {
    verdict = "At least one attribute has reached its failure threshold: the drive itself predicts a failure.";
    cls = "bad";
  } else {
    verdict = "The SMART verdict is not known: " + plainVerdict(*status);
  }
  // A gauge with the two sides of the threshold.
  page.raw("<svg xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" width=\"320\" height=\"44\" viewBox=\"0 0 320 44\" "
           "font-family=\"DejaVu Sans,Arial,sans-serif\" font-size=\"11\"><title>SMART verdict</title>"
           "<rect x=\"0\" y=\"4\" width=\"150\" height=\"20\" fill=\"" +
           std::string(std::string(cls) == "bad" ? "#c62828" : "#f3c1c1") +
           "\"/><rect x=\"170\" y=\"4\" width=\"150\" height=\"20\" fill=\"" +
           std::string(std::string(cls) == "good" ? "#2e7d32" : "#c8e6c9") +
           "\"/><line x1=\"160\" y1=\"0\" x2=\"160\" y2=\"28\" stroke=\"#000\" stroke-width=\"2\"/>"
           "<text x=\"75\" y=\"40\" text-anchor=\"middle\">threshold crossed</text>"
           "<text x=\"245\" y=\"40\" text-anchor=\"middle\">within thresholds</text></svg>");
  page.raw("<p class=\"" + std::string(cls) + "\">");
  page.text(verdict);
  page.raw("</p><p class=\"note\">");
  page.text("The module hands a host the drive's verdict on its attributes against their thresholds, not the "
            "attribute values themselves; the verdict is what the " + textOf(status->testKey) + " on disk " +
            std::to_string(device.index) + " read.");
  page.raw("</p></div>");
}

void deviceSection(Page& page, const DeviceFacts& device, const SessionFacts& session) {
  std::vector<const TestRecord*> records;
  for (const TestRecord& record : session.records) {
    if (record.deviceIndex == device.index) records.push_back(&record);
  }
  page.raw("<section class=\"disk\" id=\"disk-" + std::to_string(device.index) + "\"><h2>");
  page.text("Disk " + std::to_string(device.index) + ": " + describeValue(device.description.name));
  page.raw("</h2>");
  bool reads = false;
  for (const TestRecord* record : records) {
    reads = reads || (record->outcome == RunOutcome::Ran && readsMedia(record->testKey)) ||
            !badSectorsOf(*record).empty();
  }
  page.raw("<div class=\"row\">");
  if (reads) {
    page.raw("<div><h3>Surface map</h3>");
    surfaceMap(page, device, records);
    page.raw("</div>");
  }
  page.raw("<div><h3>Results</h3>");
  if (records.empty()) {
    page.element("p", "No test was run on this disk.");
  } else {
    resultsTable(page, records);
  }
  page.raw("</div></div>");

  std::vector<const TestRecord*> seeks, selfTests;
  // Pictures only of runs; a test that did not run is in the results table.
  for (const TestRecord* record : records) {
    if (record->outcome != RunOutcome::Ran) continue;
    if (isFunnelSeek(record->testKey) || isRandomSeek(record->testKey)) seeks.push_back(record);
    if (isSelfTest(record->testKey)) selfTests.push_back(record);
  }
  if (!seeks.empty()) {
    page.raw("<h3>Seek tests: time distribution</h3><div class=\"row\">");
    for (const TestRecord* record : seeks) seekHistogram(page, *record);
    page.raw("</div>");
  }
  if (!selfTests.empty()) {
    page.raw("<h3>Self-test log</h3><div class=\"row\">");
    for (const TestRecord* record : selfTests) selfTestTimeline(page, *record);
    page.raw("</div>");
  }
  smartPanel(page, device, records);
  messagesTable(page, records);
  descriptionTable(page, device);
  page.raw("</section>");
}

}  // namespace

std::string htmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default:
        if (c < 0x20 && c != '\n' && c != '\t') {
          out += "\xEF\xBF\xBD";  // a control byte from a device string: shown as a replacement mark
        } else if (c >= 0x80) {
          // Kept only as part of a well-formed UTF-8 sequence.
          const size_t length = c >= 0xF0 && c < 0xF5 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
          bool valid = length != 0 && i + length <= text.size();
          for (size_t k = 1; valid && k < length; ++k) {
            valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
          }
          if (valid) {
            out.append(text, i, length);
            i += length - 1;
          } else {
            out += "\xEF\xBF\xBD";
          }
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

std::string htmlReport(const SessionFacts& session) {
  Page page;
  page.raw("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
           "img-src data:\"><title>");
  page.text("Storage diagnostics report" + (session.machine.empty() ? std::string() : " - " + session.machine));
  page.raw("</title><style>");
  page.raw(kStyle);
  page.raw("</style></head><body><header><h1>Storage diagnostics report</h1><p class=\"meta\">");
  std::string machine = session.machine.empty() ? "this computer"
                        : session.machine == "default" ? "the built-in simulated PC"
                                                       : "the simulated PC described in " + session.machine;
  page.text("Run on " + machine + (session.startedUnixSeconds != 0 ? ", " + utcText(session.startedUnixSeconds) : "") +
            ", by " + session.program + " " + session.programVersion + " with the module " +
            (session.moduleName.empty() ? std::string("storage") : textOf(session.moduleName)) + " " +
            session.moduleVersion + ".");
  page.raw("</p><p class=\"meta\">");
  std::string command = session.program;
  for (const std::string& argument : session.arguments) command += " " + argument;
  page.text("Command: " + command);
  page.raw("</p><p class=\"meta\">");
  page.text("Outcome: " + exitStatusText(session.exitStatus) + " (exit status " + std::to_string(session.exitStatus) +
            ")" + (session.interrupted ? "; the user stopped the session" : "") + ".");
  page.raw("</p>");
  for (const std::string& error : session.errors) {
    page.raw("<p class=\"meta bad\">");
    page.text(error);
    page.raw("</p>");
  }
  page.raw("</header>");
  deviceOverview(page, session);
  for (const DeviceFacts& device : session.devices) {
    // A disk that no test touched is listed in the overview only.
    bool tested = false;
    for (const TestRecord& record : session.records) tested = tested || record.deviceIndex == device.index;
    if (tested || session.records.empty()) deviceSection(page, device, session);
  }
  page.raw("<footer><p class=\"note\">");
  page.text("Made by " + session.program + " " + session.programVersion +
            ". Results are the module's result codes in words; messages are the module's keys in English. Times "
            "are measured by " + session.program + " on this computer's clock.");
  page.raw("</p></footer></body></html>\n");
  return page.str();
}

namespace {
long currentProcessId() {
#if defined(_WIN32)
  return static_cast<long>(GetCurrentProcessId());
#else
  return static_cast<long>(getpid());
#endif
}
}  // namespace

bool writeFileAtomically(const std::string& path, const std::string& text, std::string& error) {
  const std::string temporary = path + ".tmp-" + std::to_string(static_cast<long>(currentProcessId()));
  FILE* file = std::fopen(temporary.c_str(), "wb");
  if (file == nullptr) {
    error = std::strerror(errno);
    return false;
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const int writeErrno = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    error = std::strerror(written ? errno : writeErrno);
    std::remove(temporary.c_str());
    return false;
  }
#if defined(_WIN32)
  // Windows' rename refuses an existing target; a second run replaces the
  // previous report, as it does on Linux.
  if (MoveFileExA(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) == 0) {
    error = "cannot replace the file (Windows error " + std::to_string(GetLastError()) + ")";
#else
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    error = std::strerror(errno);
#endif
    std::remove(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace hwc
