// hwc_cli --metrics FILE.prom: a session's results and each disk's key health
// figures in the text exposition format that Prometheus reads, as a fleet's
// node_exporter picks it up from its textfile collector folder.
#pragma once

#include <string>

#include "run_facts.h"

namespace hwc {

// The whole file: HELP and TYPE lines, then one sample per disk (and per
// disk and test), each labelled with the disk's index, model and serial.
std::string prometheusMetrics(const SessionFacts& session);

// A label value as the format wants it: backslash, double quote and line
// feed escaped; bytes that are no UTF-8 replaced.
std::string escapeLabelValue(const std::string& value);

}  // namespace hwc
