// Campaigns as a user runs them: every channel with every setting, the same
// results whole, in shards merged, or stopped and resumed; merges and
// resumes that would mix campaigns refused by name; the report in a browser.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <png.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "../host/AmihostTest.h"

namespace {

using namespace amihost_test;

class Campaign : public AmihostTest {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(s_dir + "/c1.s2p")) {
            Spit(s_dir + "/c1.s2p", LossyLine(0.0));
            Spit(s_dir + "/c2.s2p", LossyLine(0.0, 2e9));
        }
    }
    // The two channels, every EQ setting, into `out`; `bits` instead of the short run's.
    static std::vector<std::string> Both(const std::string& out, std::vector<std::string> extra = {},
                                         const char* bits = nullptr) {
        std::vector<std::string> args = Kit({"--channel", "c1.s2p", "--channel", "c2.s2p", "--sweep-eq", "-o", out});
        if (bits != nullptr) *(std::find(args.begin(), args.end(), "--bits") + 1) = bits;
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    }
};

// The table's rows and the best lines, without the lines naming folders.
std::string Rows(const std::string& out) {
    std::istringstream in(out);
    std::string rows;
    for (std::string line; std::getline(in, line);)
        if (line.rfind("c1.s2p", 0) == 0 || line.rfind("c2.s2p", 0) == 0 || line.rfind("best", 0) == 0) rows += line + "\n";
    return rows;
}

std::set<std::string> Files(const std::string& dir) {
    std::set<std::string> names;
    std::error_code ec;
    for (const auto& f : std::filesystem::directory_iterator(dir, ec)) names.insert(f.path().filename().string());
    return names;
}

}  // namespace

TEST_F(Campaign, ThreeShardsMergedGiveTheWholeCampaign) {
    const Result alone = Run(Kit({"--channel", "c2.s2p", "--sweep-eq", "-o", "c2alone"}));
    const Result whole = Run(Both("whole"));
    ASSERT_EQ(alone.code, 0) << alone.err;
    ASSERT_EQ(whole.code, 0) << whole.err;
    const std::vector<double> a = Heights(Slurp(s_dir + "/whole/channel1/summary.json")),
                              b = Heights(Slurp(s_dir + "/whole/channel2/summary.json"));
    EXPECT_EQ(b, Heights(Slurp(s_dir + "/c2alone/summary.json")));
    ASSERT_EQ(a.size(), 16u);
    ASSERT_EQ(b.size(), 16u);
    size_t best = 0;
    for (size_t k = 1; k < a.size(); ++k)
        if (std::min(a[k], b[k]) > std::min(a[best], b[best])) best = k;
    EXPECT_NE(whole.out.find("best of all: EQ " + std::to_string(best) + ", worst eye height over the 2 channels "),
              std::string::npos)
        << whole.out;
    const nlohmann::json doc = nlohmann::json::parse(Slurp(s_dir + "/whole/summary.json"));
    EXPECT_EQ(doc["points"].size(), 32u);
    EXPECT_EQ(doc["best_overall"]["setting"], std::to_string(best));
    EXPECT_EQ(doc["best_per_channel"][1]["eye_height_v"], *std::max_element(b.begin(), b.end()));

    std::set<std::string> seen;
    for (int k = 1; k <= 3; ++k) {
        const std::string dir = "shard" + std::to_string(k);
        const Result r = Run(Both(dir, {"--shard", std::to_string(k) + "/3"}));
        ASSERT_EQ(r.code, 0) << r.err;
        size_t points = 0;
        for (const std::string& f : Files(s_dir + "/" + dir + "/points"))
            if (f.rfind("point-", 0) == 0 && f.compare(f.size() - 5, 5, ".json") == 0) {
                ++points;
                EXPECT_TRUE(seen.insert(f).second) << f;
            }
        EXPECT_EQ(points, k < 3 ? 11u : 10u);
    }
    EXPECT_EQ(seen.size(), 32u);
    const Result merged = Run({"merge", "--out", "merged", "shard3", "shard1", "shard2"});
    ASSERT_EQ(merged.code, 0) << merged.err;
    EXPECT_EQ(Rows(merged.out), Rows(whole.out));
    EXPECT_EQ(Slurp(s_dir + "/merged/summary.json"), Slurp(s_dir + "/whole/summary.json"));
    EXPECT_EQ(Slurp(s_dir + "/merged/report.html"), Slurp(s_dir + "/whole/report.html"));
}

TEST_F(Campaign, MergesAndResumesThatWouldMixCampaignsAreRefused) {
    // One channel's sweep in two shards; x3 splits it in three, `other` is another campaign.
    auto shard = [&](const std::string& dir, const std::string& k, std::vector<std::string> extra = {}) {
        std::vector<std::string> args = Kit({"--channel", "c1.s2p", "--sweep-eq", "--shard", k, "-o", dir});
        args.insert(args.end(), extra.begin(), extra.end());
        return args;
    };
    for (const auto& args :
         {shard("r1", "1/2"), shard("r2", "2/2"), shard("x3", "2/3"), shard("other", "2/2", {"--amplitude", "0.4"})})
        ASSERT_EQ(Run(args).code, 0);
    std::filesystem::remove(s_dir + "/r2/points/point-00001.json");
    const std::string bad = "amihost merge: bad file: ";
    // err: the start of standard error.
    const struct { std::vector<std::string> args; int code; std::string err; } cases[] = {
        {{"merge", "--out", "m", "r1"}, 5, bad + "shard 2 of 2 is missing\n"},
        {{"merge", "--out", "m", "r1", "r1"}, 5, bad + "shard 1 of 2 is given twice: r1 and r1\n"},
        {{"merge", "--out", "m", "r1", "x3"}, 5,
         bad + "x3 holds shard 2 of 3 and r1 shard 1 of 2: they split the campaign differently\n"},
        {{"merge", "--out", "m", "r1", "r2"}, 5,
         bad + "r2 (shard 2 of 2) has no result for channel 1 (c1.s2p), EQ 1: finish it with --resume\n"},
        {{"merge", "--out", "m", "r1", "nothing"}, 5, bad + "nothing holds no campaign results (no campaign.json)\n"},
        {{"merge", "--out", "r1", "r1", "r2"}, 2,
         "amihost merge: usage error: --out r1 is one of the shards' folders: merge into another\n"},
        {{"merge", "--out", "m", "r1", "other"}, 5, bad + "other is from another campaign than r1 (fingerprint "},
        {shard("r2", "2/2", {"--resume", "--amplitude", "0.4"}), 6,
         "amihost: bad parameter: --resume: r2 holds the results of another campaign (fingerprint "},
        {shard("r2", "1/2", {"--resume"}), 6, "amihost: bad parameter: --resume: r2 holds shard 2 of 2, not shard 1 of 2\n"},
    };
    for (const auto& c : cases) {
        const Result r = Run(c.args);
        EXPECT_EQ(r.code, c.code) << c.err;
        EXPECT_EQ(r.err.substr(0, c.err.size()), c.err);
    }
    ASSERT_EQ(Run(shard("r2", "2/2", {"--resume"})).code, 0);
    const Result fixed = Run({"merge", "--out", "m", "r1", "r2"});
    EXPECT_EQ(fixed.code, 0) << fixed.err;
    EXPECT_EQ(nlohmann::json::parse(Slurp(s_dir + "/m/summary.json"))["points"].size(), 16u);
}

// Stopped as Ctrl-C stops it, a campaign leaves whole results only; --resume
// keeps them untouched and runs the rest.
TEST_F(Campaign, AStoppedCampaignResumesToTheResultsOfAnUninterruptedOne) {
    ASSERT_EQ(Run(Both("uninterrupted", {"-j", "1"}, "8000")).code, 0);

    std::string cmd = "cd '" + s_dir + "' && exec '" AMIHOST_PATH "'";
    for (const std::string& a : Both("stopped", {"-j", "1"}, "8000")) cmd += " '" + a + "'";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setpgid(0, 0);
        execl("/bin/sh", "sh", "-c", (cmd + " > /dev/null 2>&1").c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    const std::string points = s_dir + "/stopped/points";
    for (int i = 0; i < 3000 && Files(points).size() < 6; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    kill(-child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);

    std::map<std::string, std::filesystem::file_time_type> before;
    for (const std::string& f : Files(points)) {
        ASSERT_EQ(f.find(".part"), std::string::npos) << "a result half written: " << f;
        before[f] = std::filesystem::last_write_time(points + "/" + f);
        if (f.size() > 5 && f.compare(f.size() - 5, 5, ".json") == 0)
            EXPECT_NO_THROW(nlohmann::json::parse(Slurp(points + "/" + f))) << f;
    }
    ASSERT_GE(before.size(), 2u);
    ASSERT_LT(before.size(), 64u) << "the campaign ended before it was stopped";
    const Result resumed = Run(Both("stopped", {"-j", "1", "--resume"}, "8000"));
    ASSERT_EQ(resumed.code, 0) << resumed.err;
    EXPECT_EQ(Slurp(s_dir + "/stopped/summary.json"), Slurp(s_dir + "/uninterrupted/summary.json"));
    for (const auto& [f, time] : before) EXPECT_EQ(std::filesystem::last_write_time(points + "/" + f), time) << f;
}

TEST_F(Campaign, TheReportOpensInAHeadlessBrowser) {
    if (access("/usr/bin/chromium", X_OK) != 0)
        GTEST_SKIP() << "SKIPPED LOUDLY: /usr/bin/chromium is not installed, so no browser opened report.html "
                        "(apt-get install chromium)";
    const Result r = Run(Both("browsed"));
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string chromium = "cd '" + s_dir + "' && /usr/bin/chromium --headless --no-sandbox --disable-gpu "
                                 "--user-data-dir=browser --window-size=1000,1400 ";
    const std::string url = "file://" + s_dir + "/browsed/report.html";
    ASSERT_EQ(std::system((chromium + "--dump-dom '" + url + "' > dom.html 2> /dev/null").c_str()), 0);
    const std::string page = Slurp(s_dir + "/dom.html"), start = "<table id=\"results\">";
    const std::string dom = page.substr(page.find(start), page.find("</table>", page.find(start)) - page.find(start));
    size_t rows = 0;
    for (size_t at = dom.find("<tr><td>"); at != std::string::npos; at = dom.find("<tr><td>", at + 1)) ++rows;
    EXPECT_EQ(rows, 32u);
    for (const char* channel : {"<td>c1.s2p</td><td>15</td>", "<td>c2.s2p</td><td>0</td>"})
        EXPECT_NE(dom.find(channel), std::string::npos) << channel;
    EXPECT_NE(page.find("<img alt=\"c2.s2p, EQ "), std::string::npos);

    ASSERT_EQ(std::system((chromium + "--screenshot=shot.png '" + url + "' > /dev/null 2>&1").c_str()), 0);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&image, (s_dir + "/shot.png").c_str()), 0);
    image.format = PNG_FORMAT_GRAY;
    std::vector<png_byte> pixels(PNG_IMAGE_SIZE(image));
    ASSERT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0);
    EXPECT_EQ(image.width, 1000u);
    const size_t dark = std::count_if(pixels.begin(), pixels.end(), [](png_byte v) { return v < 128; });
    EXPECT_GT(dark, pixels.size() / 100) << "the page rendered blank";
}
