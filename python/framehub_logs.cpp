// Log records into Python's logging module, from whichever thread writes them.
#include "framehub_py.h"

#include <lumo/log.h>

#include <cstdio>
#include <string>

namespace framehub_py {

namespace {

// framehub._deliver(level, category, function, message). Never released: a
// record may arrive on another thread while the module is torn down.
PyObject* deliver = nullptr;

// Taking the GIL while the interpreter finalises would end this thread inside
// lumo's sink; such a record goes to stderr the way lumo's own sink writes it.
void toStderr(const lumo::log::Record& record)
{
    static const char levels[] = "?FEWIV";
    const char level = record.level >= 1 && record.level <= 5 ? levels[record.level] : '?';
    std::string line = std::string("[") + level + "] " + record.category + ": ";
    if (!record.function.empty())
        line += record.function + ": ";
    line += record.message + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void toPython(const lumo::log::Record& record)
{
    if (pythonIsFinalizing()) {
        toStderr(record);
        return;
    }
    py::gil_scoped_acquire gil;
    try {
        py::handle function(deliver);
        function(record.level, record.category, record.function, record.message);
    } catch (py::error_already_set& e) {
        e.discard_as_unraisable("framehub log record");
    } catch (...) {
        // A record that can't be delivered is dropped; the library goes on.
    }
}

} // namespace

void bindLogs(py::module_& m)
{
    m.def(
        "_route_logs",
        [](py::function function) {
            if (!deliver)
                deliver = function.release().ptr();
            // lumo's sink lock may be held by a thread waiting for the GIL.
            GilRelease nogil;
            lumo::log::setHandler(&toPython);
        },
        "Sends every record to _deliver(level, category, function, message).");
    m.def(
        "_unroute_logs", [] { lumo::log::setHandler(lumo::log::Handler()); }, py::call_guard<GilRelease>(),
        "Back to lumo's stderr sink; run at exit, before finalisation.");
    m.def(
        "set_log_level",
        [](int level, const std::string& category) {
            if (category.empty())
                lumo::log::setLevel(level);
            else
                lumo::log::setCategoryLevel(category, level);
        },
        py::arg("level"), py::arg("category") = "", py::call_guard<GilRelease>(),
        "1 fatal, 2 error, 3 warning (the default), 4 information, 5 verbose; every category or one.");
}

} // namespace framehub_py
