// hwc_cli --report FILE.html: one page that tells a session to a person, with
// pictures drawn as inline SVG. The page stands alone: no script, no font,
// no style sheet and no image is fetched from anywhere.
#pragma once

#include <string>

#include "run_facts.h"

namespace hwc {

// The whole page.
std::string htmlReport(const SessionFacts& session);

// Text made safe for HTML content and attribute values.
std::string htmlEscape(const std::string& text);

// Writes `text` to `path` through a temporary file in the same folder and a
// rename, so that a reader never sees half a file. False with `error` set
// when the file could not be written.
bool writeFileAtomically(const std::string& path, const std::string& text, std::string& error);

}  // namespace hwc
