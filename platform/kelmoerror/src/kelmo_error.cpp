#include <kelmoerror/kelmo_error.h>

namespace Kelmo {

KelmoError::KelmoError(
    const std::string& module, const std::string& method, const std::string& description, const char* file, int line)
    : _module(module)
    , _method(method)
    , _description(description)
    , _file(file ? file : "")
    , _line(line)
{
    _what = _module + "::" + _method + ": " + _description;
    if (!_file.empty())
        _what += " (" + _file + ":" + std::to_string(_line) + ")";
}

KelmoError::~KelmoError() noexcept = default;

const char* KelmoError::what() const noexcept { return _what.c_str(); }
const std::string& KelmoError::getModuleName() const { return _module; }
const std::string& KelmoError::getMethodName() const { return _method; }
const std::string& KelmoError::getDescription() const { return _description; }
const std::string& KelmoError::getFileName() const { return _file; }
int KelmoError::getLineNumber() const { return _line; }

} // namespace Kelmo
