#pragma once
// A command's entry in the host: its name, and either a maker of command
// objects (commands that can be undone) or a doIt of its own (actions).

#include "Host/Command/TcommandObject.h"

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

class TmetaCommand {
public:
    using Creator = std::function<std::unique_ptr<TcommandObject>()>;

    explicit TmetaCommand(std::string name, Creator creator = {})
        : fName(std::move(name)), fCreator(std::move(creator)) {}
    TmetaCommand(const TmetaCommand&) = delete;
    TmetaCommand& operator=(const TmetaCommand&) = delete;
    virtual ~TmetaCommand() = default;

    const std::string& name() const { return fName; }

    // A new command object per call; null for an action.
    virtual std::unique_ptr<TcommandObject> create() const { return fCreator ? fCreator() : nullptr; }
    // What an action does. Never undone. 0 is success.
    virtual int doIt(const TargList& args);

    // The process-wide table that static registration fills. Returns false
    // (and keeps the first) when the name is taken.
    static bool registerCommand(std::unique_ptr<TmetaCommand> command);
    static bool deregisterCommand(const std::string& name);
    static TmetaCommand* find(const std::string& name);
    static std::vector<std::string> registeredNames();

    // Enters a class under a name: a TcommandObject class gets a maker, a
    // TmetaCommand class (an action) is entered itself.
    template <class C> static bool enter(const std::string& name) {
        if constexpr (std::is_base_of_v<TmetaCommand, C>) {
            return registerCommand(std::make_unique<C>(name));
        } else {
            static_assert(std::is_base_of_v<TcommandObject, C>,
                          "a command is a TcommandObject or a TmetaCommand");
            return registerCommand(
                std::make_unique<TmetaCommand>(name, [] { return std::make_unique<C>(); }));
        }
    }

private:
    std::string fName;
    Creator fCreator;
};

// The maker of one command class, for code that wants the type by name.
template <class C> class TmetaCommandOf : public TmetaCommand {
public:
    explicit TmetaCommandOf(std::string name)
        : TmetaCommand(std::move(name), [] { return std::make_unique<C>(); }) {}
};

#define MOTILANE_CAT_INNER(a, b) a##b
#define MOTILANE_CAT(a, b) MOTILANE_CAT_INNER(a, b)
// At namespace scope in a .cpp: MOTILANE_REGISTER_COMMAND("vortex", TdynVortexCmd);
#define MOTILANE_REGISTER_COMMAND(NAME, CLASS)                                                               \
    [[maybe_unused]] static const bool MOTILANE_CAT(sRegistered_, __LINE__) = TmetaCommand::enter<CLASS>(NAME)
