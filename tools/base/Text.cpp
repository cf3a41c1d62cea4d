// Text: small text helpers the tools share.
#include "tools/base/Text.h"

#include <cctype>

namespace amihost {

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace amihost
