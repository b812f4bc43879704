// What a person sees while tests run: a progress bar with the test's name and
// percentage on a terminal; in a file or a pipe a line when a test starts, at
// most one line per tenth of its progress and one with its result; nothing at
// all when the output is JSON.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace hwc {

enum class DisplayMode { Terminal, Lines, Silent };

class ProgressDisplay {
 public:
  ProgressDisplay(DisplayMode mode, FILE* out) : mode_(mode), out_(out) {}

  // `label` names device and test: "[0] SMART Status Test".
  void beginTest(const std::string& label);
  void progress(uint32_t percent, const std::string& messageKey);
  void logLine(const std::string& message, uint32_t level);
  // Any other line of the run (an answer, a log line), kept clear of the bar.
  void note(const std::string& text);
  // A question: on a line of its own, and the bar stays away until the next
  // progress, so that the prompt that follows is not glued to it.
  void question(const std::string& text);
  void endTest(const std::string& verdict);
  // A test that did not start: one line with its verdict.
  void skipped(const std::string& label, const std::string& verdict);

  DisplayMode mode() const { return mode_; }

 private:
  void drawBar();
  void clearBar();

  DisplayMode mode_;
  FILE* out_;
  std::string label_;
  uint32_t percent_ = 0;
  bool percentShown_ = false;
  uint32_t shownTenth_ = 0;
  bool barDrawn_ = false;
  size_t barWidth_ = 0;
};

}  // namespace hwc
