#include "Host/Command/TargList.h"

#include <cctype>
#include <cstdlib>
#include <stdexcept>

namespace {

// "-2", "-.5", "-1e3"; not "-inf" or "-nan", which are flag names.
bool readsAsNumber(const std::string& word) {
    std::size_t first = (!word.empty() && (word[0] == '-' || word[0] == '+')) ? 1 : 0;
    if (first >= word.size() ||
        !(std::isdigit(static_cast<unsigned char>(word[first])) || word[first] == '.'))
        return false;
    const char* begin = word.c_str();
    char* end = nullptr;
    std::strtod(begin, &end);
    return end == begin + word.size();
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += c;
        }
    }
    return out + "\"";
}

std::string vectorText(const TscriptVector& v) {
    return "<<" + formatScriptNumber(v[0]) + ", " + formatScriptNumber(v[1]) + ", " +
           formatScriptNumber(v[2]) + ">>";
}

template <class T, class F> std::string arrayText(const std::vector<T>& items, F&& one) {
    std::string out = "{";
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i) out += ", ";
        out += one(items[i]);
    }
    return out + "}";
}

std::string valueText(const TscriptValue& value) {
    switch (value.type()) {
    case TscriptType::None:
        return "";
    case TscriptType::String:
        return quoted(value.asString());
    case TscriptType::Vector:
        return vectorText(value.asVector());
    case TscriptType::IntArray:
        return arrayText(value.intArray(), [](int i) { return std::to_string(i); });
    case TscriptType::FloatArray:
        return arrayText(value.floatArray(), [](double d) { return formatScriptNumber(d); });
    case TscriptType::StringArray:
        return arrayText(value.stringArray(), quoted);
    case TscriptType::VectorArray:
        return arrayText(value.vectorArray(), vectorText);
    default:
        return value.toString();
    }
}

} // namespace

TargList::TargList(std::string commandName, std::vector<TscriptArg> args)
    : fCommandName(std::move(commandName)), fArgs(std::move(args)) {}

TargList TargList::fromWords(std::string commandName, std::initializer_list<std::string> words) {
    return fromWords(std::move(commandName), std::vector<std::string>(words));
}

TargList TargList::fromWords(std::string commandName, const std::vector<std::string>& words) {
    TargList list;
    list.fCommandName = std::move(commandName);
    for (const std::string& word : words) {
        if (word.size() > 1 && word[0] == '-' && !readsAsNumber(word))
            list.addFlag(word);
        else
            list.add(TscriptValue(word));
    }
    return list;
}

const TscriptArg& TargList::at(std::size_t i) const {
    if (i >= fArgs.size())
        throw std::out_of_range(fCommandName + ": missing argument " + std::to_string(i + 1) + " (" +
                                std::to_string(fArgs.size()) + " given)");
    return fArgs[i];
}

TargList& TargList::add(TscriptValue value) {
    fArgs.push_back(TscriptArg{std::move(value), false});
    return *this;
}

TargList& TargList::addFlag(const std::string& name) {
    fArgs.push_back(TscriptArg{TscriptValue(name.rfind('-', 0) == 0 ? name : "-" + name), true});
    return *this;
}

std::string TargList::toString() const {
    std::string out = fCommandName;
    for (const TscriptArg& arg : fArgs) {
        out += ' ';
        if (arg.isFlag) {
            std::string word = arg.value.asString();
            out += word.rfind('-', 0) == 0 ? word : "-" + word;
        } else {
            out += valueText(arg.value);
        }
    }
    return out;
}
