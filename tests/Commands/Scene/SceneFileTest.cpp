// Scene files: every node type saved and opened again with its stored values,
// the same bytes on a second save, and opens that fail leaving the scene as it was.

#include "Commands/Scene/DynSceneTest.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Dag/Tshape.h"
#include "Host/Files/TsceneText.h"
#include "Host/Graph/Tmetaclass.h"
#include "Host/SceneCommands/TplugPath.h"
#include "Host/Session/TsceneFiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string sceneText(TdependGraph& g) {
    std::ostringstream out;
    writeSceneText(g, out);
    return out.str();
}

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A value other than the default that the attribute accepts.
double otherValue(const Tattribute& a) {
    const double d = a.defaultNumber();
    if (a.type() == TattrType::Boolean) return d != 0 ? 0 : 1;
    if (a.type() == TattrType::Enum)
        for (const auto& [label, value] : a.fields())
            if (value != d) return value;
    const bool whole = a.type() == TattrType::Int32 || a.type() == TattrType::Int16 ||
                       a.type() == TattrType::Byte || a.type() == TattrType::Enum;
    const double step = whole ? 1 : 0.25;
    if (!a.hasMaxValue() || d + step <= a.maxValue()) return d + step;
    return d - step;
}

class SceneFileTest : public DynSceneTest {
protected:
    // Stored numbers a user sets: computed ones follow their inputs, and a scene that
    // opens starts its first run again (firstEval).
    static bool settable(TdependNode& n, const Tattribute& a) {
        if (!a.hasFlag(Tattribute::kStorable) || !a.hasFlag(Tattribute::kWritable) || !a.isNumeric() ||
            a.isElementOfArray() || a.isCompound() || a.name() == "firstEval")
            return false;
        const int i = a.index();
        if (i >= 0 && static_cast<unsigned>(i) < n.vsData()->attributeCount() && n.vsData()->isAffected(i))
            return false;
        const Tplug plug(&n, const_cast<Tattribute*>(&a));
        return !plug.isDestination() && n.shouldBeWritten(plug);
    }

    std::string path(const std::string& name) {
        const fs::path dir = fs::temp_directory_path() / ("motilane-scenefile-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        return (dir / name).string();
    }

    // Every stored number of every node, by plug name; letters by their text in a file.
    std::map<std::string, std::string> storedValues() {
        std::map<std::string, std::string> out;
        for (TdependNode* n : session.graph().nodes()) {
            TdataBlock& block = n->normalBlock();
            for (unsigned i = 0; i < n->attributeCount(); ++i) {
                Tattribute* a = n->attribute(i);
                if (!a || !settable(*n, *a)) continue;
                const Tplug plug(n, a);
                const TvalueSlot& s = block.slot(a, -1);
                out[plug.name()] =
                    a->type() == TattrType::Time ? std::to_string(s.ticks) : formatScriptNumber(s.number);
            }
        }
        return out;
    }
};

TEST_F(SceneFileTest, EveryNodeTypeComesBackWithItsStoredValues) {
    std::vector<std::string> madeNames;
    for (const TdependNodeMetaClass* m : TnodeTypeRegistry::all()) {
        if (m->metaclass().isAbstract() || std::string(m->typeName()) == "time") continue;
        TdependNode* n = session.graph().createNode(m->typeName(), std::string("saved_") + m->typeName());
        ASSERT_NE(n, nullptr) << m->typeName();
        madeNames.push_back(n->name());
        // Every settable stored number moves off its default.
        for (unsigned i = 0; i < n->attributeCount(); ++i) {
            Tattribute* a = n->attribute(i);
            if (!settable(*n, *a)) continue;
            const Tplug plug(n, a);
            if (a->type() == TattrType::Time)
                writePlugTime(plug, TanimTime(a->defaultNumber() + 0.5, kSeconds));
            else
                writePlugNumber(plug, otherValue(*a));
        }
    }
    ASSERT_GT(madeNames.size(), 20u);
    ASSERT_TRUE(
        run("select -r saved_particle saved_transform; playbackOptions -min 3 -max 77; currentTime -u 0 9;"))
        << errors.str();
    const auto before = storedValues();
    const std::string text = sceneText(session.graph());
    // Text, then binary from the scene the text opened: both give back the same scene.
    for (const auto& [name, format] : {std::pair{"catalogue.mls", TsceneFormat::kText},
                                       std::pair{"catalogue.mlb", TsceneFormat::kBinary}}) {
        const std::string file = path(name);
        saveScene(session, file, format);
        const std::string bytes = fileText(file);
        if (format == TsceneFormat::kText) {
            EXPECT_EQ(bytes, text);
        }

        openScene(session, file);
        for (const std::string& made : madeNames)
            EXPECT_NE(session.graph().findNode(made), nullptr) << made;
        const auto after = storedValues();
        for (const auto& [plug, value] : before) {
            auto it = after.find(plug);
            ASSERT_NE(it, after.end()) << name << " " << plug;
            EXPECT_EQ(it->second, value) << name << " " << plug;
        }
        EXPECT_EQ(after.size(), before.size()) << name;
        EXPECT_EQ(session.graph().time(), TanimTime(9.0, kFilm)) << name;
        EXPECT_EQ(TmodelList::activeModel()->activeList().size(), 2u) << name;
        EXPECT_EQ(sceneText(session.graph()), text) << name;
        EXPECT_EQ(session.sceneName(), file);
        EXPECT_FALSE(session.isModified());
        // Saved again, the same bytes.
        saveScene(session, file + ".again", format);
        EXPECT_EQ(fileText(file + ".again"), bytes) << name;
    }
}

// Arrays, meshes, curves, added attributes and connections: what interactive work leaves behind.
TEST_F(SceneFileTest, EditsArraysAndConnectionsSurvive) {
    ASSERT_TRUE(run(R"(
        currentUnit -time pal;
        polyCube -n box -w 2;
        curve -d 3 -p 0 0 0 -p 1 2 0 -p 3 1 0 -p 4 0 1 -n path;
        particle -n drops -p 0 1 0 -p 1 2 3 -p 2 0 0;
        particle -e -id 1 -at velocity -vv 4 5 6 drops;
        addPP -atr rgbPP drops;
        setParticleAttr -at rgbPP -vv 0.5 0.25 1 dropsShape.pt[2];
        setAttr dropsShape.startFrame 5;
        saveInitialState drops;
        addAttr -ln note -dt string dropsShape;
        setAttr dropsShape.note -type string "two\nlines \"quoted\"";
        setAttr box.translate 1 2.5 -3;
        workspace -fileRule "sceneCaches" "caches/saved";
        select -r drops; gravity -n pull; radial -n push;
        delete push;
        select -cl;
    )")) << errors.str();
    const TpolyMesh cube = *TmeshShape::cast(session.graph().findNode("boxShape"))->mesh();
    // Initial ages are kept as saved: reading the start time must not move them again.
    const double birth = num(node<TdynParticleShape>("dropsShape"), "birthTime0", 0);
    const std::string file = path("edits.mls");
    ASSERT_TRUE(run("file -save \"" + file + "\";")) << errors.str();
    const std::string saved = fileText(file);
    ASSERT_TRUE(run("file -new; polyPlane -n other; workspace -fileRule sceneCaches elsewhere;"))
        << errors.str();
    EXPECT_EQ(session.graph().findNode("drops"), nullptr);
    ASSERT_TRUE(run("file -open -force \"" + file + "\";")) << errors.str();

    EXPECT_EQ(TtimeUnit::current(), kPal);
    EXPECT_EQ(TworkspaceRoot::fileRule("sceneCaches"), "caches/saved");
    EXPECT_EQ(session.graph().findNode("other"), nullptr);
    EXPECT_EQ(session.graph().findNode("push"), nullptr);
    auto* p = node<TdynParticleShape>("dropsShape");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(vec(p, "position0", 2), T4dDblVector(2, 0, 0));
    EXPECT_EQ(num(p, "birthTime0", 0), birth);
    EXPECT_EQ(vec(p, "velocity0", 1), T4dDblVector(4, 5, 6));
    EXPECT_EQ(vec(p, "rgbPP0", 2), T4dDblVector(0.5, 0.25, 1));
    EXPECT_EQ(plugValue(parsePlug(session.graph(), "dropsShape.note"), TdgContext::fsNormal).asString(),
              "two\nlines \"quoted\"");
    EXPECT_EQ(plugValue(parsePlug(session.graph(), "box.translateY"), TdgContext::fsNormal).asFloat(), 2.5);
    EXPECT_TRUE(parsePlug(session.graph(), "dropsShape.inputForce[0]").isDestination());
    auto* mesh = TmeshShape::cast(session.graph().findNode("boxShape"));
    ASSERT_NE(mesh, nullptr);
    ASSERT_NE(mesh->mesh(), nullptr);
    EXPECT_EQ(*mesh->mesh(), cube);
    ASSERT_NE(session.graph().findNode("pathShape"), nullptr);
    EXPECT_EQ(sceneText(session.graph()), saved);

    // Played from the opened scene as from the one that was saved.
    frame(5);
    frame(6);
    EXPECT_NEAR(vec(p, "position", 1).x, 1 + 4.0 / 25, 1e-12);
}

TEST_F(SceneFileTest, AFailedOpenLeavesTheSceneAsItWas) {
    ASSERT_TRUE(run("particle -n kept -p 1 2 3; playbackOptions -min 5 -max 9; select -r kept;"))
        << errors.str();
    const std::string file = path("kept.mls");
    ASSERT_TRUE(run("file -save \"" + file + "\";")) << errors.str();
    const std::string saved = sceneText(session.graph());

    auto write = [&](const std::string& name, const std::string& text) {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    };
    const std::string header = std::string(kSceneTextHeader) + "1\n";
    const std::pair<std::string, std::string> bad[] = {
        {write("unknown.mls",
               header + "createNode transform -n a -shared;\ncreateNode warpDrive -n w -shared;\n"),
         "unknown.mls:3: createNode: unknown node type 'warpDrive'"},
        {write("syntax.mls", header + "createNode transform -n a -shared;\nsetAttr \"a.tx\" (1 + ;\n"),
         "syntax.mls:3"},
        {write("cut.mls", saved.substr(0, saved.find("setAttr") + 30)), "cut.mls:"},
        {write("newer.mls", std::string(kSceneTextHeader) + "7\n"), "scene format 7"},
        {write("badarray.mls",
               header + "particle -n p;\nsetAttr \"pShape.position0\" -type vectorArray 500000000 1 2 3;\n"),
         "expected 500000000 elements"},
        {path("missing.mls"), "no such file"},
        {fs::temp_directory_path().string(), "not a regular file"},
    };
    for (const auto& [badFile, message] : bad) {
        errors.str("");
        EXPECT_FALSE(run("file -open \"" + badFile + "\";")) << badFile;
        EXPECT_NE(errors.str().find(message), std::string::npos) << badFile << ": " << errors.str();
        EXPECT_EQ(sceneText(session.graph()), saved) << badFile;
        EXPECT_EQ(session.sceneName(), this->path("kept.mls"));
        EXPECT_EQ(TmodelList::activeModel()->activeList().size(), 1u);
    }
    // Unsaved changes are not dropped without -force.
    ASSERT_TRUE(run("setAttr keptShape.startFrame 4;")) << errors.str();
    EXPECT_TRUE(session.isModified());
    EXPECT_FALSE(run("file -new;"));
    EXPECT_NE(errors.str().find("not saved"), std::string::npos) << errors.str();
    EXPECT_NE(session.graph().findNode("kept"), nullptr);
}

TEST_F(SceneFileTest, ABrokenBinaryFileSaysWhereAndChangesNothing) {
    ASSERT_TRUE(run("particle -n kept -p 1 2 3 -p 4 5 6; saveInitialState kept;")) << errors.str();
    const std::string good = path("kept.mlb");
    ASSERT_TRUE(run("file -save \"" + good + "\";")) << errors.str();
    const std::string bytes = fileText(good);
    const std::string saved = sceneText(session.graph());

    auto patched = [&](const std::string& name, std::string b) {
        std::ofstream(path(name), std::ios::binary) << b;
        return path(name);
    };
    auto replaced = [&](std::string from, const std::string& to) {
        std::string b = bytes;
        const std::size_t at = b.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        if (at != std::string::npos) b.replace(at, from.size(), to);
        return b;
    };
    std::string newer = bytes;
    newer[bytes.find("HEAD") + 11] = 9;
    // The count of position0's elements (after its name, tag and two kind bytes), far beyond the bytes left.
    std::string huge = bytes;
    const std::string plug = "keptShape.position0";
    huge.replace(huge.find(plug) + plug.size() + 4 + 2, 4, std::string("\x7f\xff\xff\xff", 4));
    const std::pair<std::string, std::string> bad[] = {
        {patched("half.mlb", bytes.substr(0, bytes.size() / 2)), "are left"},
        {patched("tag.mlb", replaced("YPAR", "YZZZ")), "unknown node type 'particle' (tag 'YZZZ')"},
        {patched("chunk.mlb", replaced("CONN", "CONX")), "unknown chunk 'CONX'"},
        {patched("newer.mlb", newer), "scene format 9"},
        {patched("count.mlb", huge), "a count of 2147483647 needs"},
    };
    for (const auto& [file, message] : bad) {
        errors.str("");
        EXPECT_FALSE(run("file -open \"" + file + "\";")) << file;
        EXPECT_NE(errors.str().find(message), std::string::npos) << file << ": " << errors.str();
        EXPECT_NE(errors.str().find("at byte"), std::string::npos) << file << ": " << errors.str();
        EXPECT_EQ(sceneText(session.graph()), saved) << file;
    }
    ASSERT_TRUE(run("file -open \"" + good + "\";")) << errors.str();
    EXPECT_EQ(sceneText(session.graph()), saved);
}

TEST_F(SceneFileTest, AFailedSaveLeavesTheOldFileWhole) {
    ASSERT_TRUE(run("particle -n a -p 1 2 3;")) << errors.str();
    const std::string file = path("whole.mls");
    ASSERT_TRUE(run("file -save \"" + file + "\";")) << errors.str();
    const std::string before = fileText(file);
    errors.str("");
    EXPECT_FALSE(run("file -save \"" + path("no/such/dir/x.mls") + "\";"));
    EXPECT_NE(errors.str().find("cannot write"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("file -save \"" + path("scene.txt") + "\";"));
    EXPECT_NE(errors.str().find("scene files end in .mls"), std::string::npos) << errors.str();
    EXPECT_EQ(fileText(file), before);
    EXPECT_FALSE(fs::exists(file + ".partial"));
}

} // namespace
