// createNode, delete, rename, objExists, nodeType, ls, select.

#include "Host/Dag/TdagObject.h"
#include "Host/Dag/Tshape.h"
#include "Host/Graph/TdnTime.h"
#include "Host/SceneCommands/TsceneCommand.h"

#include <algorithm>
#include <memory>

namespace {

// Holds a deleted node between delete and undo (or for good).
struct DetachedNode {
    std::unique_ptr<TdependNode> node;
    TdependNode* raw = nullptr;
    std::string parentName;
};

class TcreateNodeCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("n", "name", {TargType::String});
        s.addFlag("p", "parent", {TargType::String});
        s.addFlag("s", "shared", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
    }
    int run(const TargDatabase& db) override {
        std::string name, parentName;
        db.getFlagArgument("name", 0, name);
        db.getFlagArgument("parent", 0, parentName);
        TdependNode* parent = parentName.empty() ? nullptr : findNodeOrThrow(graph(), parentName);
        // A shared node that exists already (one every scene has) is taken as it is.
        if (db.isFlagSet("shared") && !name.empty())
            if (TdependNode* existing = graph().findNode(name)) {
                if (std::string(existing->typeName()) != db.objects()[0])
                    fail("a node named " + name + " exists already and is a " + existing->typeName() +
                         ", not a " + db.objects()[0]);
                engine().setResult(existing->name());
                return 0;
            }
        TdependNode* n = createNodeUndoable(*this, db.objects()[0], name, parent);
        engine().setResult(n->name());
        return 0;
    }
};

class TdeleteCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.setObjectKind(Tsyntax::ObjectKind::Objects, 1);
        s.useSelectionAsDefault(true);
    }
    int run(const TargDatabase& db) override {
        std::vector<TdependNode*> nodes;
        for (const std::string& name : db.objects()) {
            TdependNode* n = findNodeOrThrow(graph(), name);
            if (n == graph().timeNode()) fail("the time node cannot be deleted");
            if (std::find(nodes.begin(), nodes.end(), n) == nodes.end()) nodes.push_back(n);
        }
        deleteNodesUndoable(*this, nodes);
        return 0;
    }
};

class TrenameCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override { s.setObjectKind(Tsyntax::ObjectKind::Strings, 2, 2); }
    int run(const TargDatabase& db) override {
        TdependNode* n = findNodeOrThrow(graph(), db.objects()[0]);
        std::string oldName = n->name();
        std::string wanted = db.objects()[1];
        perform([this, n, wanted] { graph().renameNode(n, wanted); },
                [this, n, oldName] { graph().renameNode(n, oldName); });
        engine().setResult(n->name());
        return 0;
    }
};

class TobjExistsCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override { s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1); }
    int run(const TargDatabase& db) override {
        bool exists = true;
        try {
            const std::string& n = db.objects()[0];
            parsePlug(graph(), n, false);
        } catch (const std::exception&) {
            exists = false;
        }
        engine().setResult(exists ? 1 : 0);
        return 0;
    }
};

class TnodeTypeCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override { s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1); }
    int run(const TargDatabase& db) override {
        Tplug p = parsePlug(graph(), db.objects()[0], false);
        engine().setResult(std::string(p.node()->typeName()));
        return 0;
    }
};

class TlsCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("typ", "type", {TargType::String});
        s.makeFlagMultiUse("type");
        s.addFlag("sl", "selection", {});
        s.addFlag("l", "long", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
    }
    int run(const TargDatabase& db) override {
        std::vector<const TdependNodeMetaClass*> types;
        for (std::size_t u = 0; u < db.flagUseCount("type"); ++u) {
            std::string t = db.flagArgumentString("type", u);
            const TdependNodeMetaClass* m = TnodeTypeRegistry::find(t);
            if (!m) fail("unknown node type '" + t + "'");
            types.push_back(m);
        }
        const std::vector<TdependNode*>& pool =
            db.isFlagSet("selection") ? model().activeList() : graph().nodes();
        std::vector<std::string> out;
        const bool longNames = db.isFlagSet("long");
        for (TdependNode* n : pool) {
            if (!types.empty() &&
                std::none_of(types.begin(), types.end(), [&](auto* m) { return n->isA(m->metaclass()); }))
                continue;
            if (!db.objects().empty() && std::none_of(db.objects().begin(), db.objects().end(),
                                                      [&](auto& p) { return wildcardMatch(p, n->name()); }))
                continue;
            auto* dag = TdagObject::cast(n);
            out.push_back(longNames && dag ? dag->fullPathName() : n->name());
        }
        engine().setResult(out);
        return 0;
    }
};

class TselectCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("r", "replace", {});
        s.addFlag("add", "add", {});
        s.addFlag("d", "deselect", {});
        s.addFlag("cl", "clear", {});
        s.setObjectKind(Tsyntax::ObjectKind::Objects, 0);
    }
    int run(const TargDatabase& db) override {
        std::vector<TdependNode*> named;
        for (const std::string& n : db.objects()) {
            auto matches = model().findMatches(n);
            if (matches.empty()) fail("no object matches name: " + n);
            named.insert(named.end(), matches.begin(), matches.end());
        }
        std::vector<TdependNode*> before = model().activeList();
        std::vector<TdependNode*> after;
        // Undo finds the nodes again by name: they may have been deleted and remade.
        auto names = [](const std::vector<TdependNode*>& v) {
            std::vector<std::string> out;
            for (TdependNode* n : v)
                out.push_back(n->name());
            return out;
        };
        if (db.isFlagSet("add")) {
            // Only what is added is kept for undo, so that selecting one by one stays linear in memory.
            std::vector<TdependNode*> added;
            for (TdependNode* n : named)
                if (!model().isActive(n) && std::find(added.begin(), added.end(), n) == added.end())
                    added.push_back(n);
            if (added.empty()) return 0; // nothing changed, nothing to undo
            auto add = [this](const std::vector<std::string>& list) {
                for (const std::string& n : list)
                    if (TdependNode* node = graph().findNode(n)) model().addToActiveList(node);
            };
            auto remove = [this](const std::vector<std::string>& list) {
                for (const std::string& n : list)
                    if (TdependNode* node = graph().findNode(n)) model().removeFromActiveList(node);
            };
            perform([add, a = names(added)] { add(a); }, [remove, a = names(added)] { remove(a); });
            return 0;
        }
        if (db.isFlagSet("clear")) {
        } else if (db.isFlagSet("deselect")) {
            for (TdependNode* n : before)
                if (std::find(named.begin(), named.end(), n) == named.end()) after.push_back(n);
        } else {
            after = named;
        }
        auto select = [this](const std::vector<std::string>& list) {
            std::vector<TdependNode*> nodes;
            for (const std::string& n : list)
                if (TdependNode* node = graph().findNode(n)) nodes.push_back(node);
            model().setActiveList(nodes);
        };
        perform([select, a = names(after)] { select(a); }, [select, b = names(before)] { select(b); });
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("createNode", TcreateNodeCmd);
MOTILANE_REGISTER_COMMAND("delete", TdeleteCmd);
MOTILANE_REGISTER_COMMAND("rename", TrenameCmd);
MOTILANE_REGISTER_COMMAND("objExists", TobjExistsCmd);
MOTILANE_REGISTER_COMMAND("nodeType", TnodeTypeCmd);
MOTILANE_REGISTER_COMMAND("ls", TlsCmd);
MOTILANE_REGISTER_COMMAND("select", TselectCmd);

} // namespace

TdependNode* createNodeUndoable(TDGcommand& cmd, const std::string& type, const std::string& name,
                                TdependNode* parent) {
    TdependGraph& g = TdependGraph::current();
    TdependNode* node = g.createNode(type, name);
    auto held = std::make_shared<DetachedNode>();
    held->raw = node;
    if (parent) {
        auto* dag = TdagObject::cast(node);
        auto* p = TdagObject::cast(parent);
        if (!dag || !p) {
            g.detachNode(node);
            throw TgraphError("cannot parent " + name + " under " + parent->name());
        }
        dag->setParentObject(p);
        held->parentName = p->name();
    }
    // Made once now; redo puts the same node back rather than making another.
    cmd.addOperation(
        [held] {
            if (!held->node) return;
            TdependGraph& graph = TdependGraph::current();
            graph.reattachNode(std::move(held->node));
            if (!held->parentName.empty())
                if (auto* p = TdagObject::cast(graph.findNode(held->parentName)))
                    TdagObject::cast(held->raw)->setParentObject(p);
        },
        [held] { held->node = TdependGraph::current().detachNode(held->raw); });
    cmd.doOperations();
    return node;
}

void deleteNodesUndoable(TDGcommand& cmd, const std::vector<TdependNode*>& nodes) {
    // Children go with their transform, deepest first.
    std::vector<TdependNode*> all;
    auto collect = [&](TdependNode* n, auto&& self) -> void {
        if (std::find(all.begin(), all.end(), n) != all.end()) return;
        if (auto* dag = TdagObject::cast(n))
            for (TdagObject* c : dag->childObjects())
                self(c, self);
        all.push_back(n);
    };
    for (TdependNode* n : nodes)
        collect(n, collect);

    for (TdependNode* n : all) {
        auto held = std::make_shared<DetachedNode>();
        held->raw = n;
        // Connections are recorded to be made again on undo.
        auto links = std::make_shared<std::vector<std::pair<std::string, std::string>>>();
        cmd.addOperation(
            [held, links] {
                TdependNode* node = held->raw;
                links->clear();
                for (auto& [k, src] : node->inputConnections())
                    links->emplace_back(src.name(), Tplug(node, node->attribute(k.attr), k.index).name());
                for (auto& [k, dst] : node->outputConnections())
                    if (dst.node() != node)
                        links->emplace_back(Tplug(node, node->attribute(k.attr), k.index).name(), dst.name());
                if (auto* dag = TdagObject::cast(node))
                    held->parentName = dag->parentObject() ? dag->parentObject()->name() : std::string();
                held->node = TdependGraph::current().detachNode(node);
            },
            [held, links] {
                TdependGraph& g = TdependGraph::current();
                g.reattachNode(std::move(held->node));
                if (!held->parentName.empty())
                    if (auto* p = TdagObject::cast(g.findNode(held->parentName)))
                        TdagObject::cast(held->raw)->setParentObject(p);
                for (auto& [s, d] : *links) {
                    try {
                        g.connect(parsePlug(g, s), parsePlug(g, d), true);
                    } catch (const std::exception&) {
                        // The other end went with the same delete; its own undo reconnects.
                    }
                }
            });
    }
    cmd.doOperations();
}
