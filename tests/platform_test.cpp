#include "log_capture.h"

#include <kelmoerror/kelmo_error.h>
#include <lumo/log.h>
#include <lumo/os.h>

#include <gtest/gtest.h>

#include <thread>

namespace {

template <typename Body> void onThreads(int threads, int perThread, Body body)
{
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([=] {
            for (int i = 0; i < perThread; ++i)
                body(t, i);
        });
    for (auto& th : pool)
        th.join();
}

TEST(LumoLog, SameNameSameHandle)
{
    lumo::log::CategoryType a = lumo::log::addCategory("test.same");
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(a, lumo::log::addCategory("test.same"));
    EXPECT_NE(a, lumo::log::addCategory("test.other"));
}

TEST(LumoLog, RecordCarriesAllFieldsAndLineBreaks)
{
    LogCapture capture;
    lumo::log::CategoryType cat = lumo::log::addCategory("test.fields");
    lumo::log::LogStream(2, "", "myFunction", 0, cat) << "line one\nline " << 2;
    auto records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, 2);
    EXPECT_EQ(records[0].category, "test.fields");
    EXPECT_EQ(records[0].function, "myFunction");
    EXPECT_EQ(records[0].file, "");
    EXPECT_EQ(records[0].line, 0);
    EXPECT_EQ(records[0].message, "line one\nline 2");
}

TEST(LumoLog, LevelsFilterGloballyAndPerCategory)
{
    LogCapture capture(3);
    lumo::log::CategoryType cat = lumo::log::addCategory("test.levels");
    auto written = [&](int level, lumo::log::CategoryType category) {
        capture.clear();
        lumo::log::LogStream(level, "", "f", 0, category) << "x";
        return capture.records().size();
    };
    for (int level : { 1, 3, 4, 5 })
        EXPECT_EQ(written(level, cat), level <= 3 ? 1u : 0u) << "level " << level;

    lumo::log::setCategoryLevel("test.levels", 5);
    EXPECT_EQ(written(5, cat), 1u);

    // setLevel reaches categories registered later too.
    lumo::log::setLevel(1);
    EXPECT_EQ(lumo::log::categoryLevel(lumo::log::addCategory("test.levels.later")), 1);
    EXPECT_EQ(lumo::log::categoryLevel(cat), 1);
    EXPECT_EQ(written(1, nullptr), 0u);
}

TEST(LumoLog, SetHandlerReturnsPreviousAndEmptyRestoresDefault)
{
    int first = 0;
    lumo::log::Handler old = lumo::log::setHandler([&](const lumo::log::Record&) { ++first; });
    lumo::log::Handler mine = lumo::log::setHandler(lumo::log::Handler());
    ASSERT_TRUE(static_cast<bool>(mine));
    lumo::log::Record r { 2, "c", "f", "", 0, "m" };
    mine(r);
    EXPECT_EQ(first, 1);
    lumo::log::setHandler(old);
}

TEST(LumoLog, ManyThreadsLoseNoRecord)
{
    LogCapture capture;
    lumo::log::CategoryType cat = lumo::log::addCategory("test.threads");
    onThreads(8, 500,
        [=](int t, int i) { lumo::log::LogStream(3, "", "worker", 0, cat) << "thread " << t << " record " << i; });
    auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 4000u);
    for (const auto& m : messages)
        EXPECT_EQ(m.rfind("thread ", 0), 0u) << m;
}

TEST(LumoLog, DefaultSinkWritesWholeLinesFromManyThreads)
{
    lumo::log::setLevel(3);
    lumo::log::CategoryType cat = lumo::log::addCategory("test.sink");
    testing::internal::CaptureStderr();
    onThreads(4, 200, [=](int t, int i) {
        lumo::log::LogStream(2, "", "sinkWorker", 0, cat) << "payload-" << t << "-" << i << "-end";
    });
    std::string out = testing::internal::GetCapturedStderr();
    size_t lines = 0, start = 0;
    for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1, ++lines) {
        std::string line = out.substr(start, end - start);
        EXPECT_NE(line.find("test.sink"), std::string::npos) << line;
        EXPECT_NE(line.find("sinkWorker"), std::string::npos) << line;
        EXPECT_EQ(line.compare(line.size() - 4, 4, "-end"), 0) << line;
    }
    EXPECT_EQ(lines, 800u);
}

TEST(LumoOs, ClockOverrideAndRestore)
{
    lumo::os::setClock([](lumo::os::timeval* tv) {
        tv->tv_sec = 1000;
        tv->tv_usec = 999999;
    });
    lumo::os::timeval tv {};
    EXPECT_EQ(lumo::os::gettimeofday(&tv), 0);
    EXPECT_EQ(tv.tv_sec, 1000);
    EXPECT_EQ(tv.tv_usec, 999999);

    lumo::os::setClock(std::function<void(lumo::os::timeval*)>());
    EXPECT_EQ(lumo::os::gettimeofday(&tv), 0);
    EXPECT_GT(tv.tv_sec, 1600000000); // a real wall clock again
    EXPECT_GE(tv.tv_usec, 0);
    EXPECT_LT(tv.tv_usec, 1000000);
    EXPECT_EQ(lumo::os::gettimeofday(nullptr), -1);
}

TEST(KelmoError, CarriesAllTexts)
{
    const Kelmo::KelmoError k("CameraBuilder", "Constructor", "Camera not supported", nullptr, 0);
    EXPECT_EQ(k.getModuleName(), "CameraBuilder");
    EXPECT_EQ(k.getMethodName(), "Constructor");
    EXPECT_EQ(k.getDescription(), "Camera not supported");
    const std::string what = static_cast<const std::exception&>(k).what();
    for (const char* part : { "CameraBuilder", "Constructor", "Camera not supported" })
        EXPECT_NE(what.find(part), std::string::npos) << what;
}

} // namespace
