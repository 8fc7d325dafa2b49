// Parsing command arguments against a syntax: flags, modes, objects, values.

#include "CommandTestSupport.h"
#include "Host/Command/TargDatabase.h"

namespace {

Tsyntax sphereSyntax() {
    Tsyntax s;
    s.enableQuery();
    s.enableEdit();
    s.addFlag("r", "radius", {TargType::Double});
    s.addFlag("sx", "subdivisionsX", {TargType::Int});
    s.addFlag("n", "name", {TargType::String});
    s.addFlag("ch", "constructionHistory", {TargType::Bool});
    s.addFlag("t", "time", {TargType::Time});
    s.addFlag("p", "position", {TargType::Double, TargType::Double, TargType::Double});
    s.addFlag("at", "attribute", {TargType::String});
    s.makeFlagMultiUse("at");
    s.setObjectKind(Tsyntax::ObjectKind::Objects, 0, 1);
    return s;
}

TargDatabase parse(const Tsyntax& syntax, const TargList& args) {
    return TargDatabase(syntax, args);
}

TargDatabase parseWords(std::initializer_list<std::string> words) {
    return parse(sphereSyntax(), TargList::fromWords("polySphere", words));
}

std::string parseError(const Tsyntax& syntax, const TargList& args) {
    try {
        TargDatabase db(syntax, args);
    } catch (const TargError& e) {
        return e.what();
    }
    return "no error";
}

std::string sphereError(std::initializer_list<std::string> words) {
    return parseError(sphereSyntax(), TargList::fromWords("polySphere", words));
}

} // namespace

using CommandArgParsing = HostCommandFixture;

TEST_F(CommandArgParsing, ShortAndLongNamesReachTheSameFlag) {
    for (const char* flag : {"-r", "-radius"}) {
        TargDatabase db = parseWords({flag, "2.5", "-sx", "12"});
        EXPECT_TRUE(db.isFlagSet("r"));
        EXPECT_TRUE(db.isFlagSet("-radius"));
        EXPECT_EQ(db.flagUseCount("radius"), 1u);
        EXPECT_DOUBLE_EQ(db.flagArgumentDouble("r"), 2.5);
        EXPECT_EQ(db.flagArgumentInt("subdivisionsX"), 12);
        EXPECT_FALSE(db.isFlagSet("name"));
        EXPECT_FALSE(db.isQuery());
        EXPECT_FALSE(db.isEdit());
    }
}

TEST_F(CommandArgParsing, ArgumentsConvertToTheFlagsTypes) {
    TargDatabase db = parseWords({"-n", "12", "-t", "36", "-sx", "4.0"});
    // A number where a string is wanted is taken as its text.
    EXPECT_EQ(db.flagArgumentString("name"), "12");
    EXPECT_DOUBLE_EQ(db.flagArgumentTime("time"), 36.0);
    // Times are frames of the current unit: 36 frames at 25 fps are 1.44 s.
    const TtimeUnitSystem unit = TtimeUnit::current();
    TtimeUnit::setCurrent(kPal);
    EXPECT_EQ(db.flagArgumentAnimTime("time").ticks(), 8640);
    TtimeUnit::setCurrent(unit);
    // A whole float is an integer.
    EXPECT_EQ(db.flagArgumentInt("sx"), 4);

    const std::pair<const char*, bool> words[] = {{"on", true},     {"off", false}, {"true", true},
                                                  {"FALSE", false}, {"yes", true},  {"No", false},
                                                  {"1", true},      {"0", false}};
    for (const auto& [word, expected] : words)
        EXPECT_EQ(parseWords({"-ch", word}).flagArgumentBool("ch"), expected) << word;

    // Script values arrive typed: numbers as numbers, a vector for three numbers.
    TargList typed("polySphere", {});
    typed.addFlag("-r").add(TscriptValue(3)).addFlag("-ch").add(TscriptValue(0));
    typed.addFlag("-p").add(TscriptValue(TscriptVector{1.0, -2.0, 0.5}));
    TargDatabase fromValues = parse(sphereSyntax(), typed);
    EXPECT_EQ(fromValues.flagArgument("r").type(), TscriptType::Float);
    EXPECT_DOUBLE_EQ(fromValues.flagArgumentDouble("r"), 3.0);
    EXPECT_FALSE(fromValues.flagArgumentBool("ch"));
    EXPECT_DOUBLE_EQ(fromValues.flagArgumentDouble("p", 0, 0), 1.0);
    EXPECT_DOUBLE_EQ(fromValues.flagArgumentDouble("p", 0, 1), -2.0);
    EXPECT_DOUBLE_EQ(fromValues.flagArgumentDouble("p", 0, 2), 0.5);
}

TEST_F(CommandArgParsing, WrongTypesNameTheCommandTheFlagAndTheValue) {
    EXPECT_EQ(sphereError({"-radius", "abc"}), "polySphere: flag '-radius' expects a number, got 'abc'");
    EXPECT_EQ(sphereError({"-r", "1.5x"}), "polySphere: flag '-radius' expects a number, got '1.5x'");
    EXPECT_EQ(sphereError({"-sx", "2.5"}), "polySphere: flag '-subdivisionsX' expects an integer, got '2.5'");
    EXPECT_EQ(sphereError({"-ch", "maybe"}),
              "polySphere: flag '-constructionHistory' expects on or off, got 'maybe'");
    TargList vectorForString("polySphere", {});
    vectorForString.addFlag("n").add(TscriptValue(TscriptVector{1, 2, 3}));
    EXPECT_EQ(parseError(sphereSyntax(), vectorForString),
              "polySphere: flag '-name' expects a string, got a vector");

    // A vector stands for three integers only when its components are whole.
    Tsyntax grid;
    grid.addFlag("res", "resolution", {TargType::Int, TargType::Int, TargType::Int});
    TargList whole("fluid", {});
    whole.addFlag("res").add(TscriptValue(TscriptVector{10, 20, 5}));
    EXPECT_EQ(TargDatabase(grid, whole).flagArgumentInt("res", 0, 1), 20);
    TargList fraction("fluid", {});
    fraction.addFlag("res").add(TscriptValue(TscriptVector{10, 2.5, 5}));
    EXPECT_EQ(parseError(grid, fraction), "fluid: flag '-resolution' expects an integer, got '2.5' in a vector");
}

TEST_F(CommandArgParsing, RepeatedFlagsOnlyWhereAllowed) {
    TargDatabase db = parseWords({"-at", "mass", "-r", "1", "-at", "lifespan"});
    ASSERT_EQ(db.flagUseCount("attribute"), 2u);
    EXPECT_EQ(db.flagArgumentString("at", 0), "mass");
    EXPECT_EQ(db.flagArgumentString("at", 1), "lifespan");
    EXPECT_THROW(db.flagArgumentString("at", 2), TargError);

    EXPECT_EQ(sphereError({"-r", "1", "-radius", "2"}), "polySphere: flag '-radius' may be used only once");
}

TEST_F(CommandArgParsing, MissingArgumentsAndUnknownFlags) {
    EXPECT_EQ(sphereError({"-r", "1", "-n"}), "polySphere: missing argument for flag '-name'");
    EXPECT_EQ(sphereError({"-p", "1", "2"}), "polySphere: missing argument for flag '-position'");
    // The next flag is not an argument.
    EXPECT_EQ(sphereError({"-n", "-r", "2"}), "polySphere: missing argument for flag '-name'");
    EXPECT_EQ(sphereError({"-foo", "1"}), "polySphere: invalid flag '-foo'");
    EXPECT_EQ(parseError(Tsyntax{}, TargList::fromWords("ls", {"extra"})), "ls: unexpected argument 'extra'");

    // A negative number the interpreter marked as a flag is still a number.
    TargList negative("polySphere", {});
    negative.addFlag("r").addFlag("-1.5");
    EXPECT_DOUBLE_EQ(parse(sphereSyntax(), negative).flagArgumentDouble("r"), -1.5);

    // Asking for a flag the syntax never had is a fault in the command.
    TargDatabase db = parseWords({"-r", "1"});
    EXPECT_FALSE(db.isFlagSet("nosuch"));
    EXPECT_THROW(db.flagArgumentDouble("nosuch"), TargError);
    EXPECT_THROW(db.flagArgumentDouble("name"), TargError);
    EXPECT_THROW(db.flagArgumentDouble("r", 0, 1), TargError);

    Tsyntax twice;
    twice.addFlag("r", "radius", {TargType::Double});
    EXPECT_THROW(twice.addFlag("rad", "r"), std::logic_error);
}

TEST_F(CommandArgParsing, QueryTakesFlagsWithoutArguments) {
    TargDatabase db = parseWords({"-r", "-q", "ball"});
    EXPECT_TRUE(db.isQuery());
    EXPECT_TRUE(db.isFlagSet("radius"));
    EXPECT_EQ(db.flagArgumentCount("radius"), 0u);
    EXPECT_EQ(db.objects(), std::vector<std::string>{"ball"});
    double radius = 7.0;
    EXPECT_FALSE(db.getFlagArgument("radius", 0, radius));
    EXPECT_EQ(radius, 7.0);
    try {
        db.flagArgumentDouble("r");
        ADD_FAILURE() << "no argument expected";
    } catch (const TargError& e) {
        EXPECT_STREQ(e.what(), "polySphere: flag '-radius' has no argument 1 in query mode");
    }

    // A flag can keep some of its arguments in query mode.
    Tsyntax s;
    s.enableQuery();
    s.addFlag("fr", "fileRule", {TargType::String, TargType::String});
    s.makeFlagQueryWithArgs("fr", 1);
    TargDatabase rule(s, TargList::fromWords("workspace", {"-q", "-fr", "particles"}));
    EXPECT_EQ(rule.flagArgumentString("fr"), "particles");
    EXPECT_EQ(parseError(s, TargList::fromWords("workspace", {"-q", "-fr"})),
              "workspace: missing argument for flag '-fileRule'");

    // Without query enabled, -q is just an unknown flag.
    Tsyntax plain;
    EXPECT_EQ(parseError(plain, TargList::fromWords("ls", {"-q"})), "ls: invalid flag '-q'");
}

TEST_F(CommandArgParsing, EditModeAndTheClashOfModes) {
    TargDatabase db = parseWords({"-e", "-r", "3", "ball"});
    EXPECT_TRUE(db.isEdit());
    EXPECT_FALSE(db.isQuery());
    EXPECT_DOUBLE_EQ(db.flagArgumentDouble("r"), 3.0);
    EXPECT_EQ(db.objects(), std::vector<std::string>{"ball"});
    EXPECT_EQ(sphereError({"-q", "-edit", "-r"}), "polySphere: -query and -edit cannot be used together");
}

TEST_F(CommandArgParsing, ObjectsFromArgumentsOrSelection) {
    std::vector<std::string> selected = {"pSphere1", "pCube1"};
    engine.setSelectionProvider([&] { return selected; });
    engine.setObjectExistsCheck([](const std::string& name) { return name.rfind("p", 0) == 0; });

    Tsyntax select;
    select.setObjectKind(Tsyntax::ObjectKind::Objects, 1, 2);
    select.useSelectionAsDefault();

    TargDatabase given(select, TargList::fromWords("select", {"pPlane1"}));
    EXPECT_EQ(given.objects(), std::vector<std::string>{"pPlane1"});
    EXPECT_FALSE(given.objectsFromSelection());

    TargDatabase fromSelection(select, TargList::fromWords("select", {}));
    EXPECT_EQ(fromSelection.objects(), selected);
    EXPECT_TRUE(fromSelection.objectsFromSelection());

    // A string array stands for its elements.
    TargList array("select", {});
    array.add(TscriptValue(std::vector<std::string>{"pA", "pB"}));
    EXPECT_EQ(TargDatabase(select, array).objects(), (std::vector<std::string>{"pA", "pB"}));

    EXPECT_EQ(parseError(select, TargList::fromWords("select", {"pA", "pB", "pC"})),
              "select: too many objects");
    EXPECT_EQ(parseError(select, TargList::fromWords("select", {"nurbs1"})),
              "select: no object matches name 'nurbs1'");
    selected = {"pA", "pB", "pC"};
    EXPECT_EQ(parseError(select, TargList::fromWords("select", {})), "select: too many objects selected");
    selected.clear();
    EXPECT_EQ(parseError(select, TargList::fromWords("select", {})), "select: no object given or selected");

    // With a matcher, patterns expand; a node named twice counts once.
    engine.setObjectMatcher([](const std::string& pattern) {
        std::vector<std::string> all = {"pSphere1", "pSphere2", "pCube1"}, found;
        for (const std::string& name : all)
            if (name == pattern ||
                (pattern.back() == '*' && name.rfind(pattern.substr(0, pattern.size() - 1), 0) == 0))
                found.push_back(name);
        return found;
    });
    Tsyntax many;
    many.setObjectKind(Tsyntax::ObjectKind::Objects, 1);
    EXPECT_EQ(TargDatabase(many, TargList::fromWords("select", {"pSphere*", "pSphere1", "pCube1"})).objects(),
              (std::vector<std::string>{"pSphere1", "pSphere2", "pCube1"}));
    EXPECT_EQ(parseError(many, TargList::fromWords("select", {"pTorus*"})),
              "select: no object matches name 'pTorus*'");

    Tsyntax getAttr;
    getAttr.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
    EXPECT_EQ(parseError(getAttr, TargList::fromWords("getAttr", {})), "getAttr: no object given");
    // Plain strings are not looked up.
    EXPECT_EQ(TargDatabase(getAttr, TargList::fromWords("getAttr", {"nurbs1.tx"})).objects()[0], "nurbs1.tx");

    Tsyntax pair;
    pair.setObjectKind(Tsyntax::ObjectKind::Strings, 2, 2);
    EXPECT_EQ(parseError(pair, TargList::fromWords("connectAttr", {"a.x"})),
              "connectAttr: needs at least 2 objects, got 1");
}

TEST_F(CommandArgParsing, TrailingValuesFollowTheObjects) {
    Tsyntax setAttr;
    setAttr.addFlag("type", "type", {TargType::String});
    setAttr.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
    setAttr.setValueArguments(1, 3);

    TargList args = TargList::fromWords("setAttr", {"ball.t", "1", "-2.5"});
    args.add(TscriptValue(3));
    TargDatabase db(setAttr, args);
    EXPECT_EQ(db.objects(), std::vector<std::string>{"ball.t"});
    ASSERT_EQ(db.valueCount(), 3u);
    EXPECT_DOUBLE_EQ(db.valueDouble(0), 1.0);
    EXPECT_DOUBLE_EQ(db.valueDouble(1), -2.5);
    EXPECT_EQ(db.valueInt(2), 3);
    EXPECT_THROW(db.valueDouble(3), TargError);

    // Flags may come after the plug; a string value stays a string.
    TargDatabase text(setAttr, TargList::fromWords("setAttr", {"ball.label", "-type", "string", "hello"}));
    EXPECT_EQ(text.flagArgumentString("type"), "string");
    EXPECT_EQ(text.valueString(0), "hello");
    EXPECT_THROW(text.valueDouble(0), TargError);

    // A negative number that arrives marked as a flag is a value.
    TargList negative = TargList::fromWords("setAttr", {"ball.tx"});
    negative.addFlag("-5");
    EXPECT_DOUBLE_EQ(TargDatabase(setAttr, negative).valueDouble(0), -5.0);

    EXPECT_EQ(parseError(setAttr, TargList::fromWords("setAttr", {"ball.t"})),
              "setAttr: expects at least 1 value, got 0");
    EXPECT_EQ(parseError(setAttr, TargList::fromWords("setAttr", {"ball.t", "1", "2", "3", "4"})),
              "setAttr: expects at most 3 values, got 4");
    TargList numberFirst("setAttr", {});
    numberFirst.add(TscriptValue(1.0));
    EXPECT_EQ(parseError(setAttr, numberFirst), "setAttr: no object given");
}

TEST_F(CommandArgParsing, ParseReportsThroughTheEngine) {
    TargDatabase db;
    engine.setCurrentLocation({"scene.ms", 7});
    EXPECT_EQ(db.parse(sphereSyntax(), TargList::fromWords("polySphere", {"-foo"})), -1);
    EXPECT_EQ(err.str(), "// Error: scene.ms:7: polySphere: invalid flag '-foo' //\n");
    EXPECT_EQ(engine.errorCount(), 1);
    EXPECT_EQ(db.parse(sphereSyntax(), TargList::fromWords("polySphere", {"-r", "2"})), 0);
    EXPECT_DOUBLE_EQ(db.flagArgumentDouble("r"), 2.0);
}
