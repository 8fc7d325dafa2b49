#include "Host/Command/TworkspaceRoot.h"

#include <filesystem>
#include <map>

namespace {

struct Workspace {
    std::string root;
    std::map<std::string, std::string> rules;
};

std::map<std::string, std::string> defaultRules() {
    return {
        {"particles", "particles"}, {"diskCache", "data"}, {"fluidCache", "cache/fluid"}, {"scene", "scenes"},
        {"scripts", "scripts"},     {"images", "images"},  {"export", "export"},
    };
}

Workspace& workspace() {
    static Workspace w{{}, defaultRules()};
    return w;
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace

std::string TworkspaceRoot::get() {
    const Workspace& w = workspace();
    if (!w.root.empty()) return w.root;
    std::error_code ec;
    std::filesystem::path cwd = std::filesystem::current_path(ec);
    return ec ? std::string(".") : withoutTrailingSlash(cwd.string());
}

void TworkspaceRoot::set(const std::string& directory) {
    workspace().root = directory.empty() ? std::string() : withoutTrailingSlash(directory);
}

void TworkspaceRoot::reset() {
    workspace() = Workspace{{}, defaultRules()};
}

std::string TworkspaceRoot::fileRule(const std::string& rule) {
    const auto& rules = workspace().rules;
    auto it = rules.find(rule);
    return it == rules.end() ? std::string() : it->second;
}

void TworkspaceRoot::setFileRule(const std::string& rule, const std::string& directory) {
    workspace().rules[rule] = withoutTrailingSlash(directory);
}

std::vector<std::string> TworkspaceRoot::fileRuleNames() {
    std::vector<std::string> names;
    for (const auto& entry : workspace().rules)
        names.push_back(entry.first);
    return names;
}

std::string TworkspaceRoot::directoryFor(const std::string& rule) {
    std::string dir = fileRule(rule);
    std::string root = get();
    if (dir.empty()) return root;
    if (dir.front() == '/') return dir; // an absolute rule stands on its own
    return root == "/" ? "/" + dir : root + "/" + dir;
}
