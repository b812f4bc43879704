// The WQL that the simulated WMI service understands: the data queries a
// client builds, "SELECT f1, f2 FROM Class" or "SELECT * FROM Class", with an
// optional WHERE of comparisons (=, <>, !=, <, >, <=, >=, IS [NOT] NULL)
// joined by AND, OR, NOT and parentheses. Keywords and names ignore case; so
// do string comparisons, as in WMI.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/windows/wmi_state.h"

namespace sim {
namespace windows {

struct WqlCondition;

struct WqlQuery {
  std::vector<std::string> fields;  // empty for "*"
  std::string className;
  std::shared_ptr<WqlCondition> where;  // null without WHERE
};

// False with *error naming the problem when the text is not such a query.
bool parseWql(const std::string& text, WqlQuery* out, std::string* error);

// Every property name the query mentions (fields and conditions), for the
// check against the class.
std::vector<std::string> wqlNamesUsed(const WqlQuery& query);

// Whether an instance passes the query's WHERE; true without one.
bool wqlMatches(const WqlQuery& query, const WmiObject& instance);

}  // namespace windows
}  // namespace sim
