// The one operation every string service shares.
#include "system/string_handler.h"

std::string StringHandler::copyToNul(const std::string& in) { return std::string(in.c_str()); }
