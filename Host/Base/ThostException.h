#pragma once
// The host's exception object: thrown inside an evaluation that cannot go on,
// absorbed by the graph's evaluation, which leaves the value as it stands.

#include <exception>
#include <string>

class ThostException : public std::exception {
public:
    // Code 8: a data letter of a wrong class was found where a typed read expected another.
    static constexpr int kWrongLetterClass = 8;

    explicit ThostException(int code, std::string what = {}) : fCode(code), fWhat(std::move(what)) {
        if (fWhat.empty()) fWhat = "host exception " + std::to_string(code);
    }
    int code() const { return fCode; }
    const char* what() const noexcept override { return fWhat.c_str(); }

private:
    int fCode;
    std::string fWhat;
};
