// file: scene files (save, open, new, rename, queries) and OBJ import.

#include "Host/SceneCommands/TsceneCommand.h"
#include "Host/Session/TsceneFiles.h"

#include <stdexcept>

namespace {

class TfileCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.enableQuery();
        s.addFlag("i", "import", {});
        s.addFlag("s", "save", {});
        s.addFlag("o", "open", {});
        s.addFlag("new", "newFile", {});
        s.addFlag("rn", "rename", {TargType::String});
        s.addFlag("f", "force", {});
        s.addFlag("typ", "type", {TargType::String});
        s.addFlag("ns", "namespace", {TargType::String});
        s.addFlag("sn", "sceneName", {});
        s.addFlag("mf", "modified", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0, 1);
    }

    int run(const TargDatabase& db) override {
        int actions = 0;
        for (const char* f : {"import", "save", "open", "newFile", "rename"})
            actions += db.isFlagSet(f) ? 1 : 0;
        if (db.isQuery()) return query(db);
        if (actions != 1) fail("give one of -open, -save, -new, -rename or -import");
        if (db.isFlagSet("import")) return import(db);

        Tsession* session = Tsession::current();
        if (!session) fail("there is no session to hold a scene");
        const std::string path = db.objects().empty() ? std::string() : db.objects()[0];
        if (db.isFlagSet("rename")) {
            std::string name;
            db.getFlagArgument("rename", 0, name);
            if (name.empty()) fail("-rename needs a file name");
            format(db, name);
            session->setSceneName(name);
            engine().setResult(name);
        } else if (db.isFlagSet("save")) {
            const std::string target = path.empty() ? session->sceneName() : path;
            if (target.empty()) fail("the scene has no file yet: give one, as file -save scene.mls");
            const TsceneFormat f = format(db, target);
            guarded([&] { saveScene(*session, target, f); });
            engine().setResult(target);
        } else {
            if (session->isModified() && !db.isFlagSet("force"))
                fail("the scene has changes that are not saved: save them, or give -force to drop them");
            if (db.isFlagSet("open")) {
                if (path.empty()) fail("-open needs a file name");
                guarded([&] { open(*session, path); });
                engine().setResult(path);
            } else {
                guarded([&] { newScene(*session); });
            }
        }
        return 0;
    }

    // Scene file errors become this command's; script errors inside a scene file go on as they are.
    template <class F> void guarded(F&& f) {
        try {
            f();
        } catch (const TscriptError&) {
            throw;
        } catch (const std::runtime_error& e) {
            fail(e.what());
        }
    }

    void open(Tsession& session, const std::string& path) {
        try {
            openScene(session, path);
        } catch (const TscriptError&) {
            engine().displayWarning("file: " + path + " was not opened; the scene open before is unchanged");
            throw;
        }
    }

    TsceneFormat format(const TargDatabase& db, const std::string& path) {
        std::string type;
        db.getFlagArgument("type", 0, type);
        try {
            return sceneFormatFor(path, type);
        } catch (const std::runtime_error& e) {
            fail(e.what());
        }
    }

    int query(const TargDatabase& db) {
        Tsession* session = Tsession::current();
        if (db.isFlagSet("modified")) {
            engine().setResult(session && session->isModified() ? 1 : 0);
        } else if (db.isFlagSet("sceneName")) {
            engine().setResult(session ? session->sceneName() : std::string());
        } else {
            fail("query -sceneName or -modified");
        }
        return 0;
    }

    int import(const TargDatabase& db) {
        if (db.objects().empty()) fail("-import needs a file name");
        std::string type = "OBJ";
        db.getFlagArgument("type", 0, type);
        if (type != "OBJ" && type != "obj") fail("unknown file type '" + type + "' (OBJ)");
        engine().setResult(importObj(*this, db.objects()[0]));
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("file", TfileCmd);

} // namespace
