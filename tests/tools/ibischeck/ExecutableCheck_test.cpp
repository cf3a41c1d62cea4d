// ExecutableCheck against tiny misbehaving models (built beside this test),
// the ELF header checks on doctored copies, and the ibischeck program run on
// the assembled kit (whose Windows DLL it reads as a PE image).
#include "tools/ibischeck/ExecutableCheck.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>

#include <cmath>
#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

#include "Fixture.h"

namespace {

using ibischeck_test::Lines;
using ibischeck_test::TempDir;

std::vector<std::string> Exercise(const std::string& library, int bits = 64, int timeout = 60,
                                  amihost::SandboxLimits limits = {}) {
    ibis::Report report;
    const ibischeck::ExecutableLine line{7, "M", "Linux_gcc_64", bits, library, ""};
    limits.nTimeoutSeconds = timeout;
    ibischeck::ExecutableCheck::Run(line, "(m)", true, limits, "m.ibs", report);
    return Lines(report);
}

// Processes named kv2_orphan (what the DAEMON models leave behind).
int Orphans() {
    int n = 0;
    for (const auto& d : std::filesystem::directory_iterator("/proc")) {
        std::ifstream comm(d.path() / "comm");
        std::string name;
        if (std::getline(comm, name) && name == "kv2_orphan") ++n;
    }
    return n;
}

std::string Base(const std::string& path) { return path.substr(path.rfind('/') + 1); }

TEST(ExecutableCheck, MisbehavingModelsAreReportedWithTheStageTheyFailedIn) {
    const std::string says = "7: NOTE: Executable ";
    const struct {
        std::string path;
        std::vector<std::string> tail;  // findings after "Executable <name> "
    } cases[] = {
        {MODEL_good, {"NOTE: says in AMI_Init: first-order low-pass",
                      "NOTE: loads; AMI_Init, AMI_GetWave (the step settles) and AMI_Close succeed"}},
        {MODEL_CRASH_IN_INIT, {"ERROR: crashed in AMI_Init (signal 6, Aborted)"}},
        {MODEL_EXIT_IN_INIT, {"ERROR: ended the process in AMI_Init (exit status 3)"}},
        {MODEL_NO_CLOSE, {"ERROR: does not export AMI_Close"}},
        {MODEL_INIT_FAILS, {"ERROR: returns 0 from AMI_Init with the .ami defaults: first-order low-pass"}},
        {MODEL_NO_SETTLING,
         {"NOTE: says in AMI_Init: first-order low-pass",
          "ERROR: does not settle: its step response through AMI_GetWave still moves in the last eighth of 32768 samples"}},
        {MODEL_NAN_OUTPUT,
         {"NOTE: says in AMI_Init: first-order low-pass",
          "ERROR: gives a non-finite sample (NaN) at sample 100 of its step response through AMI_GetWave"}},
        {MODEL_ESCAPES,
         {"NOTE: says in AMI_Init: \\x1b[2Jfirst-order\\x09low-pass",
          "NOTE: loads; AMI_Init, AMI_GetWave (the step settles) and AMI_Close succeed"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> expected;
        for (const std::string& t : c.tail) {
            const size_t colon = t.find(": ");
            expected.push_back("7: " + t.substr(0, colon) + ": Executable " + Base(c.path) + " " + t.substr(colon + 2));
        }
        EXPECT_EQ(Exercise(c.path), expected) << c.path;
    }
    const std::string hang = Base(MODEL_HANG_IN_GETWAVE);
    EXPECT_EQ(Exercise(MODEL_HANG_IN_GETWAVE, 64, 1),
              (std::vector<std::string>{says + hang + " says in AMI_Init: first-order low-pass",
                                        "7: ERROR: Executable " + hang + " did not finish AMI_GetWave within 1 s"}));
}

// A hostile library is contained: what it forks does not outlive the check,
// and its memory, files and output stay within the limits.
TEST(ExecutableCheck, HostileLibrariesStayWithinTheirLimitsAndLeaveNothingBehind) {
    const std::string head = "7: ERROR: Executable ";
    const std::string daemon = Base(MODEL_DAEMON), hang = Base(MODEL_DAEMON_HANG);
    for (bool namespaces : {true, false}) {
        amihost::SandboxLimits limits;
        limits.bNamespaces = namespaces;
        EXPECT_EQ(Exercise(MODEL_DAEMON, 64, 60, limits),
                  (std::vector<std::string>{"7: NOTE: Executable " + daemon + " says in AMI_Init: first-order low-pass",
                                            "7: NOTE: Executable " + daemon + " loads; AMI_Init, AMI_GetWave (the step "
                                            "settles) and AMI_Close succeed",
                                            head + daemon + " left processes running when it ended; they were killed"}));
        EXPECT_EQ(Orphans(), 0) << namespaces;
        EXPECT_EQ(Exercise(MODEL_DAEMON_HANG, 64, 1, limits),
                  std::vector<std::string>{head + hang + " did not finish AMI_Init within 1 s"});
        EXPECT_EQ(Orphans(), 0) << namespaces;
    }

    // A library named relative to the checker's folder is found from the child's own empty one.
    const std::string good = MODEL_good, folder = good.substr(0, good.rfind('/'));
    const std::string here = std::filesystem::current_path().string();
    std::filesystem::current_path(folder);
    EXPECT_EQ(Exercise("./" + Base(good)).back(), "7: NOTE: Executable " + Base(good) +
                                                     " loads; AMI_Init, AMI_GetWave (the step settles) and AMI_Close succeed");
    std::filesystem::current_path(here);

    TempDir dir;
    const std::string outside = dir.Write("outside.bin", "");
    setenv("KV2_TEST_WRITE_PATH", outside.c_str(), 1);
    amihost::SandboxLimits small;
    small.nFileSizeBytes = 1 << 20;
    const std::string writer = Base(MODEL_WRITER);
    EXPECT_EQ(Exercise(MODEL_WRITER, 64, 60, small),
              (std::vector<std::string>{head + writer + " was stopped in AMI_Init: it exceeded its file size limit of 1 MiB",
                                        "7: NOTE: Executable " + writer + " wrote 21 bytes to its output: writing "
                                        "\\x1b[31mbig.bin\\x0a"}));
    unsetenv("KV2_TEST_WRITE_PATH");
    EXPECT_EQ(std::filesystem::file_size(outside), 1u << 20);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "no address-space limit under a sanitizer: the 1 GiB model is not run";
#else
    small.nAddressSpaceBytes = uint64_t(256) << 20;
    const std::string hog = Base(MODEL_HOG);
    EXPECT_EQ(Exercise(MODEL_HOG, 64, 60, small),
              std::vector<std::string>{head + hog + " crashed in AMI_Init (signal 11, Segmentation fault)"});
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 300 << 10) << "kB";
#endif
}

TEST(ExecutableCheck, ElfHeaderMustMatchThePlatformAndThisMachine) {
    TempDir dir;
    std::ifstream in(MODEL_good, std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string class32 = good, arm = good;
    class32[4] = 1;                          // EI_CLASS: ELFCLASS32
    arm[18] = static_cast<char>(183), arm[19] = 0;  // e_machine: AArch64
    const std::string p32 = dir.Write("c32.so", class32), parm = dir.Write("arm.so", arm);
    const std::string text = dir.Write("text.so", "not a library");
    EXPECT_EQ(Exercise(p32), std::vector<std::string>{
                                 "7: ERROR: Executable c32.so is a 32-bit ELF file, but its platform says 64 bits"});
    EXPECT_EQ(Exercise(p32, 32), std::vector<std::string>{
                                     "7: ERROR: Executable c32.so is built for ELF machine 62, not x86"});
    class32[18] = 3;  // EM_386: a proper 32-bit x86 library, which this checker leaves unloaded
    dir.Write("c32.so", class32);
    EXPECT_EQ(Exercise(p32, 32), std::vector<std::string>{
                                     "7: NOTE: Executable c32.so is a 32-bit library; this 64-bit checker does not load it"});
    EXPECT_EQ(Exercise(parm), std::vector<std::string>{"7: ERROR: Executable arm.so is built for ELF machine 183, not x86-64"});
    EXPECT_EQ(Exercise(text), std::vector<std::string>{"7: ERROR: Executable text.so is not an ELF shared library"});
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::string kAddressSpace = "no address-space limit (sanitizer build)";
#else
const std::string kAddressSpace = "address space 2048 MiB";
#endif

// The program: output and exit status.
std::pair<int, std::string> RunProgram(const std::string& args) {
    FILE* p = popen((std::string(IBISCHECK_PATH) + " " + args + " 2>/dev/null").c_str(), "r");
    std::string out;
    for (int c; p != nullptr && (c = fgetc(p)) != EOF;) out += static_cast<char>(c);
    const int status = p != nullptr ? pclose(p) : -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(Ibischeck, KitPassesBrokenFilesFailBadCommandLinesAreRefused) {
    const std::string kit = std::string(KIT_DIR) + "/kv2_rx.ibs";
    EXPECT_EQ(RunProgram(kit), std::make_pair(0, kit + ":53: NOTE: Executable KV2_RX_x64.so loads; AMI_Init, AMI_GetWave "
                                                       "(the step settles) and AMI_Close succeed\n" +
                                                       kit + ":53: NOTE: checking ran the library's own code, in a "
                                                       "child process isolated by PID and network namespaces, with " +
                                                       kAddressSpace + ", CPU time 60 s, files up to 64 MiB, 32 more "
                                                       "processes, an empty working directory, no input; --no-exec "
                                                       "checks without running it\n" +
                                                       kit + ":54: NOTE: Executable KV2_RX_x64.dll read without loading "
                                                       "it: PE32+ x86-64 DLL exporting the AMI entry points, importing "
                                                       "only system DLLs: KERNEL32.dll msvcrt.dll\n"
                                                       "0 ERROR, 0 WARNING, 3 NOTE\n"));
    TempDir dir;
    const std::string broken = dir.Write("x.ami", "(m");
    EXPECT_EQ(RunProgram(broken), std::make_pair(1, broken + ":1: ERROR: the group opened here is never closed\n"
                                                              "1 ERROR, 0 WARNING, 0 NOTE\n"));
    const auto json = RunProgram("--json " + broken);
    EXPECT_EQ(json.first, 1);
    const nlohmann::json doc = nlohmann::json::parse(json.second);
    EXPECT_EQ(doc["errors"], 1);
    EXPECT_EQ(doc["files"], nlohmann::json::array({broken}));
    EXPECT_EQ(doc["findings"], nlohmann::json::parse("[{\"file\": \"" + broken + "\", \"line\": 1, \"severity\": "
                                                     "\"ERROR\", \"message\": \"the group opened here is never closed\"}]"));
    // A finding of one kind is shown 100 times per file; the rest are counted.
    std::string longLines = "[IBIS Ver] 7.0\n";
    for (int i = 0; i < 150; ++i) longLines += std::string(121 + i % 7, 'x') + "\n";
    const std::string many = dir.Write("many.ibs", longLines);
    const auto capped = RunProgram("--json " + many);
    const nlohmann::json found = nlohmann::json::parse(capped.second);
    EXPECT_EQ(found["errors"].get<int>(), 150 + 4);  // and no [File Name], [File Rev], [End], [Component]
    ASSERT_EQ(found["findings"].size(), 100u + 4 + 1);
    EXPECT_EQ(found["findings"].back()["message"],
              "50 more ERROR findings like this one are left out: line is 121 characters long, more than 120");
    EXPECT_EQ(RunProgram("").first, 2);
    EXPECT_EQ(RunProgram("--no-such-option " + kit).first, 2);
}

}  // namespace
