// IbsRules: a valid file of each kind gives no finding; each broken copy
// (one substring replaced) gives exactly its own finding.
#include "tools/ibischeck/IbsRules.h"

#include "Fixture.h"
#include "tools/ibis/IbisLexer.h"

namespace {

using ibischeck_test::Lines;
using ibischeck_test::Replace;
using ibischeck_test::TempDir;

const char* const kIbs = R"([IBIS Ver] 7.0
[File Name] t.ibs
[File Rev] 1
[Component] CHIP
[Manufacturer] ACME
[Package]
R_pkg 0.1 0.05 0.2
L_pkg 1nH NA NA
C_pkg 1pF NA NA
[Pin] signal_name model_name
1 DQ OUT
2 RX IN
3 RXN IN
4 VSS GND
[Diff Pin] inv_pin vdiff tdelay_typ tdelay_min tdelay_max
2 3 0.1V 0ns NA NA
[Model] IN
Model_type Input
Vinl = 0.8
Vinh = 2.0
C_comp 1pF 0.5pF 2pF
[Voltage Range] 3.3 3.0 3.6
[GND Clamp]
-3.3 -1 NA NA
0 0 NA NA
3.3 0 NA NA
[Algorithmic Model]
Executable Linux_gcc_64 m.so m.ami
[End Algorithmic Model]
[Model] OUT
Model_type Output
C_comp 1pF NA NA
[Voltage Range] 3.3 3.0 3.6
[Pulldown]
-3.3 -0.1 NA NA
6.6 0.1 NA NA
[Pullup]
-3.3 0.1 NA NA
6.6 -0.1 NA NA
[Ramp]
dV/dt_r 1.1/1n NA NA
dV/dt_f 1.1/1n NA NA
[Rising Waveform]
R_fixture = 50
V_fixture = 0
0ns 0 NA NA
1ns 1 NA NA
2ns 2 NA NA
[Add Submodel]
HOLD All
[External Model]
Language SPICE
Corner Typ x.sp ckt
[End External Model]
[Submodel] HOLD
Submodel_type Bus_hold
[End]
)";

const char* const kPkg = R"([IBIS Ver] 7.0
[File Name] p.pkg
[File Rev] 1
[Define Package Model] PK
[Manufacturer] ACME
[OEM] ACME
[Description] two-pin package
[Number Of Pins] 2
[Pin Numbers]
1
2
[Model Data]
[Inductance Matrix] Full_matrix
[Row] 1
1nH 0.1nH
[Row] 2
1nH
[Capacitance Matrix] Full_matrix
[Row] 1
1pF 0
[Row] 2
1pF
[End Model Data]
[End Package Model]
[End]
)";

const char* const kEbd = R"([IBIS Ver] 7.0
[File Name] b.ebd
[File Rev] 1
[Begin Board Description] BRD
[Manufacturer] ACME
[Number Of Pins] 2
[Pin List] signal_name
A1 D0
A2 D1
[Path Description] P1
Pin A1
Len = 0 L=1n /
Node u1.1
[Reference Designator Map]
u1 chip.ibs CHIP
[End Board Description]
[End]
)";

struct Case {
    const char* base;
    const char* file;
    std::string from, to;
    std::string expected;  // "line: SEVERITY: message"
};

std::vector<std::string> Check(const TempDir& dir, const std::string& file, const std::string& text) {
    ibis::Report report;
    const std::string path = dir.Write(file, text);
    ibischeck::IbsRules rules(path, file, report);
    rules.Check(ibis::IbisLexer::Read(text, file, report));
    return Lines(report);
}

TEST(IbsRules, ValidFilesPassAndEachBrokenCopyGivesExactlyItsFinding) {
    TempDir dir;
    dir.Write("m.so", "library");
    dir.Write("m.ami", "(m)");
    dir.Write("x.sp", "* circuit");
    for (auto [base, file] : {std::pair{kIbs, "t.ibs"}, {kPkg, "p.pkg"}, {kEbd, "b.ebd"}})
        EXPECT_EQ(Check(dir, file, base), std::vector<std::string>{}) << file;

    // What the IBIS text allows in other words passes too: split C_comp (5.0 and later), reserved
    // words in another case, a [Comment Char] that names the current comment character.
    const Case valid[] = {
        {kIbs, "t.ibs", "C_comp 1pF 0.5pF 2pF", "C_comp_pulldown 1pF 0.5pF 2pF\nC_comp_gnd_clamp 0.1pF NA NA", ""},
        {kIbs, "t.ibs", "C_pkg 1pF NA NA", "C_pkg 1pF na Na", ""},
        {kIbs, "t.ibs", "[File Rev] 1\n", "[File Rev] 1\n[Comment Char] |_char\n", ""},
        {kPkg, "p.pkg", "Full_matrix", "Full_Matrix", ""},
    };
    for (const Case& c : valid)
        EXPECT_EQ(Check(dir, c.file, Replace(c.base, c.from, c.to)), std::vector<std::string>{}) << c.to;
    // A waveform into a load tied to the other rail is not the [Ramp]'s measurement: no comparison.
    EXPECT_EQ(Check(dir, "t.ibs", Replace(Replace(kIbs, "dV/dt_r 1.1/1n", "dV/dt_r 2/1n"), "V_fixture = 0\n",
                                          "V_fixture = 3.3\n")),
              std::vector<std::string>{});

    const std::string x120(120, 'x');
    const Case cases[] = {
        {kIbs, "T.ibs", "t.ibs", "T.ibs", "2: ERROR: [File Name] T.ibs must be lower case"},
        {kIbs, "t.ibs", "t.ibs", "u.ibs", "2: ERROR: [File Name] u.ibs does not match the file name t.ibs"},
        {kIbs, "t.ibs", "CHIP", "CHIP |" + x120, "4: ERROR: line is 138 characters long, more than 120"},
        {kIbs, "t.ibs", "[File Rev] 1\n", "[File Rev] 1\n[Bogus Key]\n", "4: WARNING: unknown keyword [Bogus Key]"},
        {kIbs, "t.ibs", "[IBIS Ver] 7.0\n[File Name] t.ibs", "[File Name] t.ibs\n[IBIS Ver] 7.0",
         "1: ERROR: [IBIS Ver] must be the first keyword"},
        {kIbs, "t.ibs", "7.0", "9.9", "1: ERROR: [IBIS Ver] 9.9 is not a known IBIS version"},
        {kIbs, "t.ibs", "[File Rev] 1\n", "", "1: ERROR: [File Rev] is missing from the header"},
        {kIbs, "t.ibs", "ACME\n", "ACME\n[Date] today\n", "6: ERROR: [Date] belongs in the header, before [Component]"},
        {kIbs, "t.ibs", "[End]\n", "", "55: ERROR: [End] is missing"},
        {kIbs, "t.ibs", "[Component] CHIP", "[Component] " + std::string(41, 'C'),
         "4: ERROR: [Component] name " + std::string(41, 'C') + " is longer than 40 characters"},
        {kIbs, "t.ibs", "[Manufacturer] ACME\n", "", "4: ERROR: [Component] CHIP has no [Manufacturer]"},
        {kIbs, "t.ibs", "R_pkg 0.1 0.05", "R_pkg 0.1 0.15", "7: ERROR: R_pkg must satisfy min <= typ <= max"},
        {kIbs, "t.ibs", "C_pkg 1pF NA NA\n", "", "6: ERROR: [Package] has no C_pkg"},
        {kIbs, "t.ibs", "1 DQ", "123456 DQ", "11: ERROR: pin name 123456 is longer than 5 characters"},
        {kIbs, "t.ibs", "DQ OUT", "DQ OUTX", "11: ERROR: pin 1 names model OUTX, which is not defined"},
        {kIbs, "t.ibs", "2 3 0.1V", "2 9 0.1V", "16: ERROR: [Diff Pin] pin 9 is not in [Pin]"},
        {kIbs, "t.ibs", "Model_type Input", "Model_type Inputt", "18: ERROR: Model_type Inputt is not an IBIS model type"},
        {kIbs, "t.ibs", "C_comp 1pF 0.5pF", "C_comp 1pF 1.5pF", "21: ERROR: C_comp must satisfy min <= typ <= max"},
        {kIbs, "t.ibs", "C_comp 1pF 0.5pF", "C_comp 1e999 0.5pF", "21: ERROR: C_comp typ value 1e999 is out of range"},
        {kIbs, "t.ibs", "2pF\n", "2pF\n[Rgnd] -50 NA NA\n", "22: ERROR: [Rgnd] values must be positive"},
        {kIbs, "t.ibs", "[End]\n", "[Model Selector] SEL\nSEL loop\n[End]\n", "58: ERROR: [Model Selector] SEL lists itself"},
        {kIbs, "t.ibs", "[End]\n", "[Model Selector] SEL\nS2 other\n[Model Selector] S2\nIN in\n[End]\n",
         "58: ERROR: [Model Selector] SEL lists [Model Selector] S2: its entries must be [Model]s"},
        {kIbs, "t.ibs", "Vinl = 0.8\n", "", "17: WARNING: input model IN has no Vinl; the IBIS default applies"},
        {kIbs, "t.ibs", "[Voltage Range] 3.3 3.0 3.6\n[GND", "[GND",
         "17: ERROR: model IN has neither [Voltage Range] nor [Pullup Reference] and [Pulldown Reference]"},
        {kIbs, "t.ibs", "\n0 0 NA", "\n-4 0 NA", "25: ERROR: [GND Clamp] voltage -4 does not increase over the row before"},
        {kIbs, "t.ibs", "\n3.3 0 NA", "\n2 0 NA",
         "23: WARNING: [GND Clamp] spans -3.3 V to 2 V, short of -3.3 V to 3.3 V (-Vcc to Vcc)"},
        {kIbs, "t.ibs", "\n6.6 0.1 NA", "\n3.3 0.1 NA",
         "34: WARNING: [Pulldown] spans -3.3 V to 3.3 V, short of -3.3 V to 6.6 V (-Vcc to 2 Vcc)"},
        {kIbs, "t.ibs", "[Ramp]\ndV/dt_r 1.1/1n NA NA\ndV/dt_f 1.1/1n NA NA\n", "", "30: ERROR: model OUT has no [Ramp]"},
        {kIbs, "t.ibs", "dV/dt_f 1.1/1n", "dV/dt_f 1.1", "42: ERROR: [Ramp] dV/dt_f value 1.1 is not of the form dV/dt"},
        {kIbs, "t.ibs", "dV/dt_r 1.1/1n", "dV/dt_r 2/1n",
         "43: WARNING: [Rising Waveform] rises 20-80 % at 1 V/ns, [Ramp] dV/dt_r says 2 V/ns: more than 20 % apart"},
        {kIbs, "t.ibs", "1ns 1", "0ns 1", "47: ERROR: [Rising Waveform] time 0ns does not increase over the row before"},
        {kIbs, "t.ibs", "V_fixture = 0\n", "", "43: ERROR: [Rising Waveform] has no V_fixture"},
        {kIbs, "t.ibs", "Linux_gcc_64", "Linux64",
         "28: ERROR: Executable platform Linux64 is not of the form platform_compiler_bits (bits 32 or 64)"},
        {kIbs, "t.ibs", "m.so", "n.so", "28: ERROR: Executable file n.so not found next to the IBIS file"},
        {kIbs, "t.ibs", "m.ami", "m.txt", "28: ERROR: Executable parameter file m.txt does not have the .ami extension"},
        {kIbs, "t.ibs", "[End Algorithmic Model]\n", "", "27: ERROR: [Algorithmic Model] has no [End Algorithmic Model]"},
        {kIbs, "t.ibs", "HOLD All", "HOLD Some", "50: ERROR: [Add Submodel] mode Some is not Driving, Non-Driving or All"},
        {kIbs, "t.ibs", "HOLD All", "HELD All", "50: ERROR: [Add Submodel] names submodel HELD, which is not defined"},
        {kIbs, "t.ibs", "_type Bus_hold", "_type Hold",
         "56: ERROR: Submodel_type Hold is not Dynamic_clamp, Bus_hold or Fall_back"},
        {kIbs, "t.ibs", "[End External Model]\n", "", "51: ERROR: [External Model] has no [End External Model]"},
        {kIbs, "t.ibs", "SPICE", "Basic",
         "52: ERROR: [External Model] Language Basic is not SPICE, VHDL-AMS, Verilog-AMS, IBIS-ISS or Touchstone"},
        {kIbs, "t.ibs", "x.sp", "y.sp", "53: ERROR: [External Model] file y.sp not found next to the IBIS file"},
        {kPkg, "p.pkg", "Pins] 2", "Pins] 3", "8: ERROR: [Number Of Pins] 3 does not match the 2 pins of [Pin Numbers]"},
        {kPkg, "p.pkg", "[OEM] ACME\n", "", "4: ERROR: [Define Package Model] PK has no [OEM]"},
        {kPkg, "p.pkg", "Full_matrix", "Dense_matrix",
         "13: ERROR: [Inductance Matrix] must be Banded_matrix, Sparse_matrix or Full_matrix"},
        {kEbd, "b.ebd", "Pins] 2", "Pins] 3", "6: ERROR: [Number Of Pins] 3 does not match the 2 pins of [Pin List]"},
        {kEbd, "b.ebd", "[Reference Designator Map]\nu1 chip.ibs CHIP\n", "",
         "4: ERROR: [Begin Board Description] BRD has no [Reference Designator Map]"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Check(dir, c.file, Replace(c.base, c.from, c.to)), std::vector<std::string>{c.expected})
            << c.from << " -> " << c.to;
}

TEST(IbisLexer, KeywordsCommentsAndColumns) {
    TempDir dir;
    ibis::Report report;
    const auto sections = ibis::IbisLexer::Read(
        "[IBIS_Ver] 7.0 | version\n[Comment Char] #_char\n[GND  clamp]\n| not a comment now\n 1 2 # gone\n"
        "[Comment Char] !!\n",
        "f.ibs", report);
    ASSERT_EQ(sections.size(), 4u);
    EXPECT_EQ(sections[0].sKeyword, "ibis ver");
    EXPECT_EQ(sections[0].sArgs, "7.0");
    EXPECT_EQ(sections[2].sKeyword, "gnd clamp");
    ASSERT_EQ(sections[2].vBody.size(), 2u);
    EXPECT_EQ(sections[2].vBody[0].sText, "| not a comment now");
    EXPECT_EQ(sections[2].vBody[1].vTokens, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(sections[2].vBody[1].nLine, 5);
    EXPECT_EQ(Lines(report), std::vector<std::string>{"6: ERROR: [Comment Char] must be written as <character>_char, not !!"});
    EXPECT_EQ(ibis::IbisLexer::SplitAssignment("R_fixture=50"), (std::vector<std::string>{"R_fixture", "50"}));
}

}  // namespace
