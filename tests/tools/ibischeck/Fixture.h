// Test helpers for ibischeck: a scratch folder for fixture files, a text
// with one substring replaced, and findings as "line: SEVERITY: message".
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "amiparams/IbisParser/cmn.h"
#include "tools/ibis/Report.h"

namespace ibischeck_test {

struct TempDir {
    std::string sPath;
    TempDir() {
        char name[] = "/tmp/ibischeck_XXXXXX";
        sPath = mkdtemp(name);
        gbAllowAnyLineLength = 1;  // as the checker's main() sets it
    }
    ~TempDir() { (void)!system(("rm -rf " + sPath).c_str()); }
    std::string Write(const std::string& name, const std::string& text) const {
        const std::string path = sPath + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
};

// text with the first `from` replaced by `to`; fails the test when absent.
inline std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

inline std::vector<std::string> Lines(const ibis::Report& r) {
    std::vector<std::string> out;
    for (const ibis::Finding& f : r.Findings())
        out.push_back(std::to_string(f.nLine) + ": " + ibis::SeverityName(f.eSeverity) + ": " + f.sMessage);
    return out;
}

}  // namespace ibischeck_test
