#ifndef LUMO_LOG_H
#define LUMO_LOG_H

#include <functional>
#include <sstream>
#include <string>

namespace lumo {
namespace log {

// Levels: 1 fatal, 2 error, 3 warning, 4 information, 5 verbose.
enum { LEVEL_FATAL = 1, LEVEL_ERROR = 2, LEVEL_WARNING = 3, LEVEL_INFO = 4, LEVEL_VERBOSE = 5 };

struct Category;
typedef Category* CategoryType;

// Same name, same handle. Safe from any thread and from static initialisers
// of other libraries: the registry is built on first use and never destroyed.
CategoryType addCategory(const std::string& name);

// The category's current level; cheap enough to test before every record.
int categoryLevel(CategoryType category);
const std::string& categoryName(CategoryType category);

// Sets every category, present and future.
void setLevel(int level);
void setCategoryLevel(const std::string& name, int level);

struct Record {
    int level;
    std::string category;
    std::string function;
    std::string file;
    int line;
    std::string message;
};

typedef std::function<void(const Record&)> Handler;

// Replaces the sink and returns the previous handler (empty for the default
// stderr sink). Records are delivered one at a time, so a handler needs no
// lock of its own; once setHandler returns, the old handler is not called again.
Handler setHandler(Handler handler);

// Collects one record; hands it over on destruction when the category is
// non-null and its level is at least the record's.
class LogStream : public std::ostream {
public:
    LogStream(int level, const char* file, const char* function, int line, CategoryType category);
    ~LogStream() override;

    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

private:
    std::stringbuf _buffer;
    int _level;
    const char* _file;
    const char* _function;
    int _line;
    CategoryType _category;
};

} // namespace log
} // namespace lumo

#endif
