#include <lumo/log.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>

namespace lumo {
namespace log {

struct Category {
    explicit Category(const std::string& n, int l)
        : name(n)
        , level(l)
    {
    }
    const std::string name;
    std::atomic<int> level;
};

namespace {

const int kDefaultLevel = LEVEL_WARNING;

struct Registry {
    std::mutex mutex;
    std::map<std::string, Category*> categories;
    int defaultLevel = kDefaultLevel;

    // Guards the handler and serialises delivery; recursive so that a
    // handler may itself log.
    std::recursive_mutex sinkMutex;
    Handler handler;
};

// Built on first use and never destroyed: categories are registered from
// static initialisers and records may be written during static destruction.
Registry& registry()
{
    static Registry* instance = new Registry;
    return *instance;
}

const char* levelName(int level)
{
    switch (level) {
    case LEVEL_FATAL:
        return "F";
    case LEVEL_ERROR:
        return "E";
    case LEVEL_WARNING:
        return "W";
    case LEVEL_INFO:
        return "I";
    case LEVEL_VERBOSE:
        return "V";
    default:
        return "?";
    }
}

void defaultSink(const Record& record)
{
    std::string line;
    line.reserve(record.message.size() + record.category.size() + record.function.size() + 16);
    line += '[';
    line += levelName(record.level);
    line += "] ";
    line += record.category;
    line += ": ";
    if (!record.function.empty()) {
        line += record.function;
        line += ": ";
    }
    line += record.message;
    line += '\n';
    // One write per record keeps lines whole between threads and processes.
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

} // namespace

CategoryType addCategory(const std::string& name)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.categories.find(name);
    if (it != r.categories.end())
        return it->second;
    Category* category = new Category(name, r.defaultLevel);
    r.categories.emplace(name, category);
    return category;
}

int categoryLevel(CategoryType category) { return category ? category->level.load(std::memory_order_relaxed) : 0; }

const std::string& categoryName(CategoryType category)
{
    static const std::string empty;
    return category ? category->name : empty;
}

void setLevel(int level)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.defaultLevel = level;
    for (auto& entry : r.categories)
        entry.second->level.store(level, std::memory_order_relaxed);
}

void setCategoryLevel(const std::string& name, int level)
{
    addCategory(name)->level.store(level, std::memory_order_relaxed);
}

Handler setHandler(Handler handler)
{
    Registry& r = registry();
    std::lock_guard<std::recursive_mutex> lock(r.sinkMutex);
    Handler previous = std::move(r.handler);
    r.handler = std::move(handler);
    return previous;
}

LogStream::LogStream(int level, const char* file, const char* function, int line, CategoryType category)
    : std::ostream(nullptr)
    , _level(level)
    , _file(file)
    , _function(function)
    , _line(line)
    , _category(category)
{
    rdbuf(&_buffer);
}

LogStream::~LogStream()
{
    if (!_category || _category->level.load(std::memory_order_relaxed) < _level)
        return;
    try {
        Record record;
        record.level = _level;
        record.category = _category->name;
        record.function = _function ? _function : "";
        record.file = _file ? _file : "";
        record.line = _line;
        record.message = _buffer.str();

        Registry& r = registry();
        std::lock_guard<std::recursive_mutex> lock(r.sinkMutex);
        if (r.handler)
            r.handler(record);
        else
            defaultSink(record);
    } catch (...) {
        // A destructor must not throw; a lost record is the lesser harm.
    }
}

} // namespace log
} // namespace lumo
