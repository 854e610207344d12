#ifndef FRAMEHUB_TESTS_LOG_CAPTURE_H
#define FRAMEHUB_TESTS_LOG_CAPTURE_H

#include <lumo/log.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

// Collects every record while alive, at every level, and puts the previous
// handler and levels back on destruction.
class LogCapture {
public:
    explicit LogCapture(int level = 5)
    {
        lumo::log::setLevel(level);
        _previous = lumo::log::setHandler([this](const lumo::log::Record& r) {
            std::lock_guard<std::mutex> lock(_mutex);
            _records.push_back(r);
        });
    }
    ~LogCapture()
    {
        lumo::log::setHandler(_previous);
        lumo::log::setLevel(3);
    }

    std::vector<lumo::log::Record> records() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _records;
    }
    void clear()
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _records.clear();
    }
    // True if a record with exactly this level and message was written.
    bool has(int level, const std::string& message) const
    {
        const auto all = records();
        return std::any_of(all.begin(), all.end(),
            [&](const lumo::log::Record& r) { return r.level == level && r.message == message; });
    }
    std::vector<std::string> messages() const
    {
        std::vector<std::string> out;
        for (const auto& r : records())
            out.push_back(r.message);
        return out;
    }

private:
    mutable std::mutex _mutex;
    std::vector<lumo::log::Record> _records;
    lumo::log::Handler _previous;
};

#endif
