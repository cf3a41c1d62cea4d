// IbsFile: the receiver's executable, .ami and termination found in IBIS
// texts written by the test, and every way the choice can fail.
#include <gtest/gtest.h>

#include <string>

#include "tools/base/HostError.h"
#include "tools/ibis/IbsFile.h"

namespace {

// A component with pins on models A (algorithmic) and B (plain); R holds
// the termination keywords under test.
std::string Ibs(const std::string& termination, const std::string& executables = "Executable Linux_gcc12_64 rx.so rx.ami\n") {
    return "[IBIS Ver] 7.0\n[Component] C1\n[Pin] signal_name model_name\n1 RXP A | comment\n2 RXN A\n3 GND GND\n"
           "[Model] A\nModel_type Input\n" + termination +
           "[Algorithmic Model]\n" + executables + "[End Algorithmic Model]\n[Model] B\nModel_type Input\n[End]\n";
}

}  // namespace

TEST(IbsFile, FindsExecutableAndTermination) {
    const struct { std::string text; double ohms; const char* from; } cases[] = {
        {Ibs(""), 0.0, ""},
        {Ibs("[Rgnd] 100\n[Rpower] 100\n"), 50.0, "[Rgnd] || [Rpower]"},
        {Ibs("[Rpower] 0.1k\n"), 100.0, "[Rpower]"},
        {Ibs("[Rgnd] 1k\n[Rpower] 1M\n"), 999.000999000999, "[Rgnd] || [Rpower]"},   // M is mega, m milli
        {Ibs("[GND Clamp]\n-1.0V -20mA -20mA -20mA\n0V 0mA 0mA 0mA\n1.0V 25mA 20mA 30mA\n"), 40.0, "[GND Clamp] slope"},
    };
    for (const auto& c : cases) {
        const amihost::IbsReceiver r = amihost::IbsFile::Parse(c.text, "x.ibs", "kit", "", "");
        EXPECT_EQ(r.sComponent, "C1");
        EXPECT_EQ(r.sModel, "A");
        EXPECT_EQ(r.sLibrary, "kit/rx.so");
        EXPECT_EQ(r.sAmiFile, "kit/rx.ami");
        EXPECT_NEAR(r.dTerminationOhms, c.ohms, 1e-9) << c.from;
        EXPECT_EQ(r.sTermination, c.from);
    }
    const amihost::IbsReceiver w = amihost::IbsFile::Parse(
        Ibs("", "Executable Windows_VisualStudio_32 a.dll a.ami\nExecutable Linux_gcc9_64 b.so b.ami\n"), "x", ".", "C1", "A");
    EXPECT_EQ(w.sPlatform, "Linux_gcc9_64");
    EXPECT_EQ(w.sLibrary, "./b.so");
}

TEST(IbsFile, ChoicesThatCannotBeMadeAreNamed) {
    const std::string two = Ibs("") + "[Component] C2\n[Pin] signal_name model_name\n1 X A\n";
    const struct { std::string text, component, model; const char* message; } cases[] = {
        {Ibs(""), "C9", "", "x.ibs: no [Component] C9 (the file has: C1)"},
        {two, "", "", "x.ibs: choose a component with --component (the file has: C1, C2)"},
        {Ibs(""), "", "Z", "x.ibs: no [Model] Z (the file has: A, B)"},
        {Ibs(""), "", "B", "x.ibs: [Model] B has no [Algorithmic Model]"},
        {Ibs("", "Executable Windows_VisualStudio_64 a.dll a.ami\n"), "", "",
         "x.ibs: [Model] A has no Executable for Linux x86-64 (it has: Windows_VisualStudio_64)"},
        {Ibs("", "Executable Linux_gcc_64 a.so\n"), "", "",
         "x.ibs: line 10: Executable needs a platform, a library and an .ami file"},
        {Ibs("[Rgnd] none\n"), "", "", "x.ibs: line 9: [rgnd] needs a resistance"},
        {"x\n" + Ibs(""), "", "", "x.ibs: line 1: text before the first keyword"},
        {"[Component] C1\n[Pin] signal_name model_name\n1 RXP B\n[Model] B\n", "", "",
         "x.ibs: no pin of [Component] C1 uses a model with an [Algorithmic Model]"},
    };
    for (const auto& c : cases) {
        try {
            amihost::IbsFile::Parse(c.text, "x.ibs", ".", c.component, c.model);
            ADD_FAILURE() << "accepted: " << c.message;
        } catch (const amihost::HostError& e) {
            EXPECT_EQ(e.Code(), amihost::ExitCode::kBadFile);
            EXPECT_EQ(std::string(e.what()), c.message);
        }
    }
    EXPECT_THROW(amihost::IbsFile::Find("/nonexistent.ibs", "", ""), amihost::HostError);
}
