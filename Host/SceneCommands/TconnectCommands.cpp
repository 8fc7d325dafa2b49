// connectAttr, disconnectAttr, isConnected, listConnections.

#include "Host/SceneCommands/TsceneCommand.h"

namespace {

class TconnectAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("f", "force", {});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 2, 2);
    }
    int run(const TargDatabase& db) override {
        Tplug src = parsePlug(graph(), db.objects()[0]);
        Tplug dst = parsePlug(graph(), db.objects()[1]);
        const bool force = db.isFlagSet("force");
        // Whatever the connection replaces comes back on undo, with the value it left.
        Tplug old = dst.source();
        auto before = std::make_shared<TplugSnapshot>(dst);
        std::string problem = graph().connectionProblem(src, dst);
        if (!problem.empty()) fail(problem);
        if (!old.isNull() && old != src && !force)
            fail(dst.name() + " already has an input from " + old.name() + " (use -force to replace it)");
        perform([this, src, dst, force] { graph().connect(src, dst, force); },
                [this, src, dst, old, before] {
                    graph().disconnect(src, dst);
                    if (!old.isNull()) graph().connect(old, dst, true);
                    else before->restore();
                });
        engine().setResult(src.name() + " " + dst.name());
        return 0;
    }
};

class TdisconnectAttrCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override { s.setObjectKind(Tsyntax::ObjectKind::Strings, 2, 2); }
    int run(const TargDatabase& db) override {
        Tplug src = parsePlug(graph(), db.objects()[0]);
        Tplug dst = parsePlug(graph(), db.objects()[1]);
        if (!src.isConnectedTo(dst) && !Tplug(dst).isChildDestination())
            fail(src.name() + " is not connected to " + dst.name());
        perform([this, src, dst] { graph().disconnect(src, dst); },
                [this, src, dst] { graph().connect(src, dst, true); });
        return 0;
    }
};

class TisConnectedCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override { s.setObjectKind(Tsyntax::ObjectKind::Strings, 2, 2); }
    int run(const TargDatabase& db) override {
        Tplug src = parsePlug(graph(), db.objects()[0]);
        Tplug dst = parsePlug(graph(), db.objects()[1]);
        bool connected = dst.source() == src;
        // Compounds are connected when every child pair is.
        auto* sc = dynamic_cast<TattributeCompound*>(src.attribute());
        auto* dc = dynamic_cast<TattributeCompound*>(dst.attribute());
        if (!connected && sc && dc && sc->children().size() == dc->children().size() && !sc->children().empty()) {
            connected = true;
            for (std::size_t i = 0; i < sc->children().size(); ++i)
                connected = connected && Tplug(dst.node(), dc->children()[i], dst.multiIndex()).source() ==
                                             Tplug(src.node(), sc->children()[i], src.multiIndex());
        }
        engine().setResult(connected ? 1 : 0);
        return 0;
    }
};

class TlistConnectionsCmd : public TsceneCommand {
    void makeSyntax(Tsyntax& s) override {
        s.addFlag("s", "source", {TargType::Bool});
        s.addFlag("d", "destination", {TargType::Bool});
        s.addFlag("p", "plugs", {TargType::Bool});
        s.addFlag("c", "connections", {TargType::Bool});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1);
        s.useSelectionAsDefault(true);
    }
    int run(const TargDatabase& db) override {
        bool wantSources = true, wantDestinations = true, plugs = false, pairs = false;
        db.getFlagArgument("source", 0, wantSources);
        db.getFlagArgument("destination", 0, wantDestinations);
        db.getFlagArgument("plugs", 0, plugs);
        db.getFlagArgument("connections", 0, pairs);
        std::vector<std::string> out;
        auto emit = [&](const Tplug& mine, const Tplug& other) {
            if (pairs) out.push_back(mine.name());
            out.push_back(plugs ? other.name() : other.node()->name());
        };
        for (const std::string& name : db.objects()) {
            Tplug p = parsePlug(graph(), name, false);
            TdependNode* node = p.node();
            auto matches = [&](const TdependNode::PlugKey& k) {
                if (!p.attribute()) return true;
                Tattribute* a = node->attribute(k.attr);
                for (const Tattribute* x = a; x; x = x->parent())
                    if (x == p.attribute()) return p.multiIndex() < 0 || p.multiIndex() == k.index;
                return false;
            };
            if (wantSources)
                for (auto& [k, src] : node->inputConnections())
                    if (matches(k)) emit(Tplug(node, node->attribute(k.attr), k.index), src);
            if (wantDestinations)
                for (auto& [k, dst] : node->outputConnections())
                    if (matches(k)) emit(Tplug(node, node->attribute(k.attr), k.index), dst);
        }
        if (!plugs && !pairs) {
            // Node names once each, in the order found.
            std::vector<std::string> unique;
            for (auto& n : out)
                if (std::find(unique.begin(), unique.end(), n) == unique.end()) unique.push_back(n);
            out = unique;
        }
        engine().setResult(out);
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("connectAttr", TconnectAttrCmd);
MOTILANE_REGISTER_COMMAND("disconnectAttr", TdisconnectAttrCmd);
MOTILANE_REGISTER_COMMAND("isConnected", TisConnectedCmd);
MOTILANE_REGISTER_COMMAND("listConnections", TlistConnectionsCmd);

} // namespace
