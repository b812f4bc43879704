// Drawing progress. The bar is redrawn in place with a carriage return and
// cleared before any other line, so that lines and bar never mix.
#include "progress_display.h"

#include <algorithm>

#include "messages.h"

namespace hwc {
namespace {
constexpr uint32_t kBarCells = 30;
}  // namespace

void ProgressDisplay::beginTest(const std::string& label) {
  label_ = label;
  percent_ = 0;
  percentShown_ = false;
  shownTenth_ = 0;
  if (mode_ == DisplayMode::Terminal) {
    drawBar();
  } else if (mode_ == DisplayMode::Lines) {
    std::fprintf(out_, "%s: started\n", label_.c_str());
    std::fflush(out_);
  }
}

void ProgressDisplay::progress(uint32_t percent, const std::string& messageKey) {
  percent = std::min<uint32_t>(percent, 100);
  if (mode_ == DisplayMode::Silent) return;
  if (mode_ == DisplayMode::Terminal) {
    percent_ = percent;
    if (!messageKey.empty()) {
      clearBar();
      std::fprintf(out_, "    %s\n", describeMessage(messageKey).c_str());
    }
    drawBar();
    return;
  }
  // Plain lines, for a file or a pipe: one each time the percentage enters a
  // new tenth, with the message of that moment if it has one. The messages in
  // between reach the result line and the summary through the record.
  const uint32_t tenth = percent / 10;
  if (!percentShown_ || tenth > shownTenth_) {
    if (!messageKey.empty()) {
      std::fprintf(out_, "%s: %u%% %s\n", label_.c_str(), percent, describeMessage(messageKey).c_str());
    } else {
      std::fprintf(out_, "%s: %u%%\n", label_.c_str(), percent);
    }
    shownTenth_ = tenth;
    percentShown_ = true;
    std::fflush(out_);
  }
  percent_ = percent;
}

void ProgressDisplay::logLine(const std::string& message, uint32_t level) {
  note("    log, " + levelText(level) + ": " + describeMessage(message));
}

void ProgressDisplay::note(const std::string& text) {
  if (mode_ == DisplayMode::Silent) return;
  clearBar();
  std::fprintf(out_, "%s\n", text.c_str());
  if (mode_ == DisplayMode::Terminal && !label_.empty()) drawBar();
  std::fflush(out_);
}

void ProgressDisplay::question(const std::string& text) {
  if (mode_ == DisplayMode::Silent) return;
  clearBar();
  std::fprintf(out_, "%s\n", text.c_str());
  std::fflush(out_);
}

void ProgressDisplay::endTest(const std::string& verdict) {
  if (mode_ == DisplayMode::Silent) return;
  clearBar();
  std::fprintf(out_, "%s: %s\n", label_.c_str(), verdict.c_str());
  std::fflush(out_);
  label_.clear();
}

void ProgressDisplay::skipped(const std::string& label, const std::string& verdict) {
  if (mode_ == DisplayMode::Silent) return;
  clearBar();
  std::fprintf(out_, "%s: %s\n", label.c_str(), verdict.c_str());
  std::fflush(out_);
}

void ProgressDisplay::drawBar() {
  if (mode_ != DisplayMode::Terminal) return;
  const uint32_t filled = percent_ * kBarCells / 100;
  std::string line = "\r" + label_ + "  [" + std::string(filled, '#') + std::string(kBarCells - filled, '.') +
                     "] " + std::to_string(percent_) + "%";
  barWidth_ = line.size();
  std::fputs(line.c_str(), out_);
  std::fflush(out_);
  barDrawn_ = true;
}

void ProgressDisplay::clearBar() {
  if (!barDrawn_) return;
  std::fprintf(out_, "\r%s\r", std::string(barWidth_, ' ').c_str());
  barDrawn_ = false;
}

}  // namespace hwc
