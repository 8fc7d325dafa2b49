#pragma once
// A value of the script language: what variables hold, what expressions give,
// what commands take as arguments and return as results.

#include <array>
#include <string>
#include <variant>
#include <vector>

using TscriptVector = std::array<double, 3>;

enum class TscriptType { None, Int, Float, String, Vector, IntArray, FloatArray, StringArray, VectorArray };

class TscriptValue {
public:
    TscriptValue() = default;
    TscriptValue(int v) : fData(v) {}
    TscriptValue(double v) : fData(v) {}
    TscriptValue(bool v) : fData(v ? 1 : 0) {}
    TscriptValue(const char* v) : fData(std::string(v)) {}
    TscriptValue(std::string v) : fData(std::move(v)) {}
    TscriptValue(const TscriptVector& v) : fData(v) {}
    TscriptValue(std::vector<int> v) : fData(std::move(v)) {}
    TscriptValue(std::vector<double> v) : fData(std::move(v)) {}
    TscriptValue(std::vector<std::string> v) : fData(std::move(v)) {}
    TscriptValue(std::vector<TscriptVector> v) : fData(std::move(v)) {}

    TscriptType type() const { return static_cast<TscriptType>(fData.index()); }
    bool isNone() const { return type() == TscriptType::None; }
    bool isNumber() const { return type() == TscriptType::Int || type() == TscriptType::Float; }
    bool isArray() const { return type() >= TscriptType::IntArray; }

    // Typed access; the caller checks type() first. Conversions between the
    // scalar kinds follow the language's rules (see asInt and friends below).
    int& intRef() { return std::get<int>(fData); }
    double& floatRef() { return std::get<double>(fData); }
    std::string& stringRef() { return std::get<std::string>(fData); }
    TscriptVector& vectorRef() { return std::get<TscriptVector>(fData); }
    std::vector<int>& intArray() { return std::get<std::vector<int>>(fData); }
    std::vector<double>& floatArray() { return std::get<std::vector<double>>(fData); }
    std::vector<std::string>& stringArray() { return std::get<std::vector<std::string>>(fData); }
    std::vector<TscriptVector>& vectorArray() { return std::get<std::vector<TscriptVector>>(fData); }
    const int& intRef() const { return std::get<int>(fData); }
    const double& floatRef() const { return std::get<double>(fData); }
    const std::string& stringRef() const { return std::get<std::string>(fData); }
    const TscriptVector& vectorRef() const { return std::get<TscriptVector>(fData); }
    const std::vector<int>& intArray() const { return std::get<std::vector<int>>(fData); }
    const std::vector<double>& floatArray() const { return std::get<std::vector<double>>(fData); }
    const std::vector<std::string>& stringArray() const { return std::get<std::vector<std::string>>(fData); }
    const std::vector<TscriptVector>& vectorArray() const { return std::get<std::vector<TscriptVector>>(fData); }

    // Scalar conversions: numbers convert to each other (float to int truncates),
    // a string converts to a number when it reads as one whole and to 0 otherwise,
    // a vector converts to a number by its length and to a string as "x y z".
    int asInt() const;
    double asFloat() const;
    std::string asString() const;
    TscriptVector asVector() const;

    // The text a result echoes as: numbers in the shortest form that reads back
    // to the same double, vectors as "x y z", arrays with one blank between
    // elements, nothing for None.
    std::string toString() const;

    bool operator==(const TscriptValue& other) const { return fData == other.fData; }

private:
    std::variant<std::monostate, int, double, std::string, TscriptVector, std::vector<int>, std::vector<double>,
                 std::vector<std::string>, std::vector<TscriptVector>>
        fData;
};

// Shortest text that reads back to the same double ("5", "0.1", "1e-07").
std::string formatScriptNumber(double value);
