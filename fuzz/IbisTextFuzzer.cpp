// libFuzzer harness for ibischeck's reading: the input goes through the IBIS
// lexer and keyword rules as an .ibs file, and through the .ami rules, with
// any line length allowed as ibischeck allows it. Findings are the expected
// outcome; a crash, a sanitizer report or a hang is the fault.
#include <cstddef>
#include <cstdint>
#include <string>

#include "amiparams/IbisParser/cmn.h"
#include "tools/ibischeck/AmiRules.h"
#include "tools/ibis/IbisLexer.h"
#include "tools/ibischeck/IbsRules.h"
#include "tools/ibis/Report.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    gbAllowAnyLineLength = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ibis::Report report;
    // No folder of that name: Executable files are never found, never run.
    ibischeck::IbsRules rules("/nonexistent/f.ibs", "f.ibs", report);
    rules.Check(ibis::IbisLexer::Read(text, "f.ibs", report));
    ibischeck::AmiRules("f.ami", report).Check(text);
    (void)report.Text();
    return 0;
}
