// Runs the demo program for a second and checks what a person would see:
// the table, the last line, and pictures with real content.
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct DemoRun {
    int status;
    std::string output;
};

DemoRun run(const std::string& arguments, const std::string& environment = std::string())
{
    DemoRun r { -1, "" };
    FILE* pipe = popen((environment + FRAMEHUB_DEMO_PATH + " " + arguments + " 2>&1").c_str(), "r");
    if (!pipe)
        return r;
    char chunk[4096];
    while (size_t n = fread(chunk, 1, sizeof(chunk), pipe))
        r.output.append(chunk, n);
    const int status = pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

TEST(Demo, OneSecondRunWritesTableAndPictures)
{
    const std::filesystem::path out
        = std::filesystem::temp_directory_path() / ("framehub-demo-test-" + std::to_string(::getpid()));
    std::filesystem::remove_all(out);
    const DemoRun r = run("--seconds 1 --out " + out.string());
    ASSERT_EQ(r.status, 0) << r.output;
    for (const char* column : { "subscriber", "colorspace", "achieved", "median us", "p99 us", "cached" })
        EXPECT_NE(r.output.find(column), std::string::npos) << column;
    for (const char* row : { "viewer_0", "logger_0", "recorder_0", "cloud_0", "fusion_0" })
        EXPECT_NE(r.output.find(row), std::string::npos) << row;
    const std::string last = r.output.substr(r.output.rfind('\n', r.output.size() - 2) + 1);
    EXPECT_NE(last.find(std::filesystem::absolute(out).string()), std::string::npos) << last;

    struct Picture {
        const char* file;
        int width, height;
    } pictures[] = { { "viewer_0.png", 640, 480 }, { "edges_0.png", 640, 480 }, { "recorder_0.png", 1280, 960 },
        { "cloud_0.png", 480, 360 }, { "ranges_0.png", 320, 240 }, { "fusion_0-depth.png", 320, 240 },
        { "contact-sheet.png", 1280, 1048 } };
    for (const Picture& p : pictures) {
        cv::Mat image = cv::imread((out / p.file).string(), cv::IMREAD_COLOR);
        ASSERT_FALSE(image.empty()) << p.file;
        EXPECT_EQ(image.size(), cv::Size(p.width, p.height)) << p.file;
        cv::Scalar mean, deviation;
        cv::meanStdDev(image, mean, deviation);
        EXPECT_GT(deviation[0] + deviation[1] + deviation[2], 5.0) << p.file << " looks blank";
    }
    std::filesystem::remove_all(out);
}

TEST(Demo, BadOptionsExitWithTwo)
{
    for (const char* arguments : { "--frobnicate", "--seconds", "--seconds -3", "--seconds abc", "--input",
             "--input /nonexistent/picture.png", "--gst", "--gst videotestsrc --input a.png" }) {
        const DemoRun r = run(arguments);
        EXPECT_EQ(r.status, 2) << arguments;
        EXPECT_NE(r.output.find("framehub-demo:"), std::string::npos) << arguments << ": " << r.output;
    }
    const DemoRun help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("Usage: framehub-demo"), std::string::npos);
}

TEST(Demo, SharesAGStreamerSource)
{
    const std::filesystem::path out
        = std::filesystem::temp_directory_path() / ("framehub-demo-gst-" + std::to_string(::getpid()));
    // The leak-checking settings of the GStreamer tests (tests/CMakeLists.txt);
    // without AddressSanitizer nobody reads them.
    const DemoRun r = run("--seconds 1 --gst 'videotestsrc is-live=true pattern=ball' --out " + out.string(),
        "G_SLICE=always-malloc "
        "ASAN_OPTIONS=\"${ASAN_OPTIONS:+$ASAN_OPTIONS:}fast_unwind_on_malloc=0:malloc_context_size=10\" ");
    if (r.output.find("no GStreamer back-end") != std::string::npos)
        GTEST_SKIP() << "the GStreamer back-end is not in this build";
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("color (GStreamer)"), std::string::npos) << r.output;
    // A white ball on black: any content at all shows frames came through.
    cv::Mat image = cv::imread((out / "viewer_0.png").string(), cv::IMREAD_COLOR);
    ASSERT_FALSE(image.empty());
    cv::Scalar mean, deviation;
    cv::meanStdDev(image, mean, deviation);
    EXPECT_GT(deviation[0], 1.0) << "viewer_0.png looks blank";
    std::filesystem::remove_all(out);
}

} // namespace
