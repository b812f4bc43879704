// The management-query service: a query of named fields over a management
// class (WMI, in WQL) becomes a table of text values. The platform's classes
// and the COM plumbing are left to WinCim.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Status values of the service; 0 is success and the others tell where a
// query failed.
enum CimStatus : uint32_t {
  kCimSuccess = 0,
  kCimComInitFailed = 16,        // CoInitializeEx failed
  kCimSecurityFailed = 17,       // CoInitializeSecurity failed
  kCimNoLocator = 18,            // CoCreateInstance of the locator failed
  kCimConnectFailed = 19,        // ConnectServer failed
  kCimProxyBlanketFailed = 20,   // CoSetProxyBlanket failed
  kCimQueryFailed = 21,          // ExecQuery failed
  kCimReadFailed = 23,           // reading a value failed, or a row had no object
  kCimNullField = 25,            // null field list, or a null name in it
  kCimNullClass = 26,            // null class name
  kCimBadFieldCount = 27,        // field count below 1
  kCimNullQuery = 28,            // null query text
  kCimNullWhere = 29,            // null where clause
  kCimComAlreadyInitialised = 91,  // internal: the thread had another COM mode
};

// The rows a query found, one value per field of the query in the order of
// the fields. Each value is a NUL-terminated text of its own (a byte array
// keeps inner NULs and its length). The caller owns the result until
// Cim::freeResult.
struct CimResult {
  using Row = std::vector<std::string>;
  std::vector<Row> rows;
};

// Longest names and clause that go into a query: longer ones are cut.
constexpr size_t kCimMaxNameLength = 50;
constexpr size_t kCimMaxWhereLength = 500;

class Cim {
 public:
  virtual ~Cim() = default;

  // "SELECT f1, f2 FROM className WHERE whereClause" in `nameSpace`. On
  // success *out holds the rows (null when none matched); on failure *out
  // keeps its old value. Argument checks come before any platform call; a
  // null `out` is refused like a null field list (25).
  virtual uint32_t queryWhere(char** fields, const char* whereClause, const char* className, int32_t fieldCount,
                              CimResult** out, const char* nameSpace) = 0;
  // The same without a where clause.
  virtual uint32_t query(char** fields, const char* className, int32_t fieldCount, CimResult** out,
                         const char* nameSpace) = 0;
  // Releases a result and sets *result to null. A null pointer, or a pointer
  // to null, does nothing.
  virtual void freeResult(CimResult** result);
};

// The checks both queries make on their arguments, in this order: the field
// list, the class name, the field count, each field name, then (when
// `needsWhere`) the clause. kCimSuccess when all hold.
uint32_t checkCimArguments(char** fields, const char* className, int32_t fieldCount, bool needsWhere,
                           const char* whereClause);

// The WQL text of a query: "SELECT " + the fields joined by ", " + " FROM " +
// the class, then " WHERE " + the clause when `whereClause` is not null.
// Names are cut at kCimMaxNameLength characters, the clause at
// kCimMaxWhereLength. The arguments must have passed checkCimArguments.
std::string buildCimQueryText(char** fields, int32_t fieldCount, const char* className, const char* whereClause);
