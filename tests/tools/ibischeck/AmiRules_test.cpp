// AmiRules: a valid .ami text gives no finding; each broken copy gives
// exactly its own finding, on the line of the parameter concerned.
#include "tools/ibischeck/AmiRules.h"

#include "Fixture.h"

namespace {

using ibischeck_test::Lines;
using ibischeck_test::Replace;

const std::string kReserved = R"( (Reserved_Parameters
  (AMI_Version (Usage Info) (Type String) (Value "7.0"))
  (Init_Returns_Impulse (Usage Info) (Type Boolean) (Value False))
  (GetWave_Exists (Usage Info) (Type Boolean) (Value True))
 )
)";
const std::string kSpecific = R"( (Model_Specific
  (gain (Usage In) (Type Float) (Range 1 0 2) (Default 1))
  (mode (Usage In) (Type String) (List "a" "b") (Default "a")) | a comment (with parentheses
  (taps (Usage In) (Type Integer) (Increment 2 0 4 1))
  (level (Usage Out) (Type Float) (Value 0))
 )
)";
const std::string kAmi = "(m\n" + kReserved + kSpecific + ")\n";

std::vector<std::string> Check(const std::string& text) {
    ibis::Report report;
    ibischeck::AmiRules("m.ami", report).Check(text);
    return Lines(report);
}

TEST(AmiRules, ValidFilePassesAndEachBrokenCopyGivesExactlyItsFinding) {
    EXPECT_EQ(Check(kAmi), std::vector<std::string>{});
    // A group of parameters with its own Description is a group, not a parameter without Usage.
    EXPECT_EQ(Check(Replace(kAmi, "(level (Usage Out) (Type Float) (Value 0))",
                            "(tapset (Description \"x\") (0 (Usage In) (Type Tap) (Value 1)) "
                            "(1 (Usage In) (Type Tap) (Value 0)))")),
              std::vector<std::string>{});
    const struct {
        std::string from, to, expected;
    } cases[] = {
        {" )\n)\n", " )\n", "1: ERROR: the group opened here is never closed"},
        {"(Value 0))", "(Value 0)))", "13: ERROR: \")\" without a matching \"(\""},
        {" )\n)\n", " )\n)\n(x (y 1))\n", "14: ERROR: a second top-level group; the file must hold one root"},
        {"(Default \"a\")", "(Default \"a)", "9: ERROR: a double quote is never closed"},
        {"  (GetWave_Exists (Usage Info) (Type Boolean) (Value True))\n", "",
         "2: ERROR: required reserved parameter GetWave_Exists is missing"},
        {"(GetWave_Exists (Usage Info)", "(GetWave_Exists (Usage In)", "5: ERROR: parameter GetWave_Exists must have Usage Info"},
        {"(Type String) (Value \"7.0\")", "(Type Float) (Value 7.0)", "3: ERROR: parameter AMI_Version must have Type String"},
        {"(Value False)", "(Value false)", "4: ERROR: parameter Init_Returns_Impulse: Value false is not of Type Boolean"},
        {" )\n (Model", "  (Fancy (Usage Info) (Type Integer) (Value 1))\n )\n (Model",
         "6: WARNING: unknown reserved parameter Fancy"},
        {"(gain (Usage In)", "(gain (Usage Input)", "8: ERROR: parameter gain: Usage Input is not In, Out, InOut, Info or Dep"},
        {"(Type Float) (Range", "(Type Double) (Range",
         "8: ERROR: parameter gain: Type Double is not Float, Integer, UI, String, Boolean or Tap"},
        {"(Range 1 0 2) (Default 1)", "(Range 1 0 2) (Default 3)", "8: ERROR: parameter gain: Default 3 is outside 0 to 2"},
        {"(Range 1 0 2)", "(Range 5 0 2)", "8: ERROR: parameter gain: Range typ 5 is outside 0 to 2"},
        {"(Range 1 0 2)", "(Range 1 0)", "8: ERROR: parameter gain: Range takes 3 values, not 2"},
        {"(Range 1 0 2)", "(Range 1 0 2) (List 1 2)", "8: ERROR: parameter gain has more than one format (Range, List)"},
        {"(Default \"a\")", "(Default \"c\")", "9: ERROR: parameter mode: Default \"c\" is not in the List"},
        {"(List \"a\" \"b\")", "(Range \"a\" \"a\" \"b\")", "9: ERROR: parameter mode: Range does not apply to Type String"},
        {"(List \"a\" \"b\")", "(List \"a\" b)", "9: ERROR: parameter mode: List value b is not of Type String"},
        {"(Increment 2 0 4 1)", "(Increment 2.5 0 4 1)", "10: ERROR: parameter taps: Increment value 2.5 is not of Type Integer"},
        {"(Increment 2 0 4 1)", "(Increment 2 0 4 0)", "10: ERROR: parameter taps: Increment step 0 must be positive"},
        {"(level (Usage Out) (Type Float) (Value 0))", "(level (Usage Info) (Type Float) (Value 0) (Default 0))",
         "11: ERROR: parameter level: Value and Default are exclusive"},
        {"(level (Usage Out) (Type Float) (Value 0))", "(level (Usage Out) (Type Float) (Range 0 0 1) (Default 0))",
         "11: ERROR: parameter level: Usage Out takes no Default"},
        {"(level (Usage Out) (Type Float) (Value 0))", "(level (Usage Out) (Type Float))",
         "11: ERROR: parameter level has no Value, Range, List, Corner, Increment or Steps"},
        {"(level (Usage Out) (Type Float)", "(level (Type Float)", "11: ERROR: parameter level has no Usage"},
    };
    for (const auto& c : cases) EXPECT_EQ(Check(Replace(kAmi, c.from, c.to)), std::vector<std::string>{c.expected}) << c.to;

    EXPECT_EQ(Check("(m\n" + kSpecific + kReserved + ")\n"),
              std::vector<std::string>{"8: ERROR: Reserved_Parameters must come before Model_Specific"});
}

}  // namespace
