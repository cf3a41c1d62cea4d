// Text: small text helpers the tools share.
#pragma once

#include <string>

namespace amihost {

// ASCII letters in lower case; other bytes unchanged.
std::string Lower(std::string s);

}  // namespace amihost
