#ifndef KELMOERROR_KELMO_ERROR_H
#define KELMOERROR_KELMO_ERROR_H

#include <exception>
#include <string>

namespace Kelmo {

class KelmoError : public std::exception {
public:
    // file may be null.
    KelmoError(const std::string& module, const std::string& method, const std::string& description, const char* file,
        int line);
    ~KelmoError() noexcept override;

    const char* what() const noexcept override;

    const std::string& getModuleName() const;
    const std::string& getMethodName() const;
    const std::string& getDescription() const;
    const std::string& getFileName() const;
    int getLineNumber() const;

private:
    std::string _module;
    std::string _method;
    std::string _description;
    std::string _file;
    int _line;
    std::string _what;
};

} // namespace Kelmo

#endif
