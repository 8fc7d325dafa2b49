#include "Host/Command/TmetaCommand.h"

#include <algorithm>
#include <iostream>
#include <map>

namespace {

// Function-local so that registration from any library's static constructors
// finds it built, whatever the order.
std::map<std::string, std::unique_ptr<TmetaCommand>>& registry() {
    static std::map<std::string, std::unique_ptr<TmetaCommand>> table;
    return table;
}

} // namespace

int TmetaCommand::doIt(const TargList&) {
    return 0;
}

bool TmetaCommand::registerCommand(std::unique_ptr<TmetaCommand> command) {
    if (!command || command->name().empty()) return false;
    auto& table = registry();
    std::string key = command->name();
    if (table.emplace(key, std::move(command)).second) return true;
    // Two libraries claiming one name is a build fault; say so at start.
    std::cerr << "// Warning: command '" << key << "' is entered twice; the first one stays //" << std::endl;
    return false;
}

bool TmetaCommand::deregisterCommand(const std::string& name) {
    return registry().erase(name) > 0;
}

TmetaCommand* TmetaCommand::find(const std::string& name) {
    auto& table = registry();
    auto it = table.find(name);
    return it == table.end() ? nullptr : it->second.get();
}

std::vector<std::string> TmetaCommand::registeredNames() {
    std::vector<std::string> names;
    for (const auto& entry : registry())
        names.push_back(entry.first);
    return names;
}
