// ibischeck: checks IBIS (.ibs), package (.pkg), board (.ebd) and IBIS-AMI
// (.ami) files, and exercises the model libraries an .ibs file names.
// Exit status: 0 no ERROR, 1 at least one ERROR, 2 bad command line.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "amiparams/IbisParser/cmn.h"
#include "tools/ibischeck/Checker.h"

int main(int argc, char** argv) {
    CLI::App app{"ibischeck: IBIS, package, board and AMI file checker"};
    std::vector<std::string> files;
    bool json = false, log = false, noExec = false;
    int timeout = 60;
    int addressSpaceMiB = 2048;
    app.add_option("files", files, ".ibs, .pkg, .ebd or .ami files")->required();
    app.add_flag("--json", json, "print the findings as JSON");
    app.add_flag("--log", log, "print through the diagnostics log (\"ERROR (line   12) - ...\")");
    app.add_flag("--no-exec", noExec,
                 "do not load the model libraries: without it, checking an .ibs file RUNS THE KIT'S OWN CODE");
    app.add_option("--timeout", timeout, "seconds (wall clock and CPU) each library may take")->check(CLI::Range(1, 3600));
    app.add_option("--address-space", addressSpaceMiB, "MiB of address space each library's process may map (0: no limit)")
        ->check(CLI::Range(0, 1 << 24));
    app.footer(
        "Checking an .ibs file loads each Linux x86-64 library it names and calls AMI_Init, AMI_GetWave and AMI_Close:\n"
        "that runs the kit's own code. It runs in a child process in its own session and, where the kernel allows,\n"
        "its own PID and network namespaces (no network), with limits on address space, CPU time, file size and\n"
        "processes, an empty working directory and no input; nothing it starts outlives the check. Use --no-exec\n"
        "for a kit you do not trust at all.\n"
        "Exit status: 0 no ERROR, 1 at least one ERROR, 2 bad command line.\n"
        "Full reference: docs/ibischeck.md");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }
    // Lines past 120 characters are findings here, not broken input: the
    // text utilities must not stop at a long run of blanks.
    gbAllowAnyLineLength = 1;

    ibis::Report report;
    ibischeck::CheckOptions options;
    options.bRunExecutables = !noExec;
    options.limits.nTimeoutSeconds = timeout;
    options.limits.nAddressSpaceBytes = static_cast<uint64_t>(addressSpaceMiB) << 20;
    // Text and JSON are written as the findings come; the log's printer
    // numbers them per file, so it gets them at the end.
    if (!log) report.Stream(stdout, json ? ibis::Report::Format::kJson : ibis::Report::Format::kText);
    ibischeck::Checker checker(options, report);
    for (const std::string& f : files) checker.CheckFile(f);
    if (log) report.PrintToLog();
    else report.Finish(files);
    return report.Count(ibis::Severity::kError) == 0 ? 0 : 1;
}
