// The fixture shared by the tests that drive dynamics through a whole session:
// commands run as script text, time set frame by frame, nodes found by name.
#pragma once

#include "Commands/Particles/TdynParticleShape.h"
#include "Global/Basket/TdynamicsBasket.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Command/TworkspaceRoot.h"
#include "Host/Graph/TdependGraph.h"
#include "Host/Session/Tsession.h"

#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include <unistd.h>

// Puts a value on a node's plug as if the node upstream had computed it.
template <class V> void putCached(TdependNode* n, const Tattribute* a, const V& value, int element = -1) {
    TstandaloneValue v(a);
    v.handle().set(value);
    n->setCachedValue(Tplug(n, const_cast<Tattribute*>(a), element), v.handle(), TdgContext::fsNormal);
}

class DynSceneTest : public ::testing::Test {
protected:
    // The run-up options are global: cleared before and after, so no test sees another's.
    void SetUp() override {
        TdynamicsBasket::initialize();
        session.engine().setErrorStream(&errors);
        session.engine().setOutputStream(&output);
        clearRunupOptions();
    }
    void TearDown() override { clearRunupOptions(); }

    bool run(const std::string& text) { return session.runText(text, "test", false); }
    void frame(double f) { session.graph().setTime(TanimTime(f, kCurrentFrameUnit), true); }
    // The node of that name as a T, or null when there is none or it is something else.
    template <class T> T* node(const std::string& name) { return T::cast(session.graph().findNode(name)); }
    // A number attribute of a T node; a failure when the node or the attribute is missing.
    template <class T> double number(const std::string& name, const std::string& attr) {
        T* n = node<T>(name);
        EXPECT_NE(n, nullptr) << name;
        Tattribute* a = n ? n->attribute(attr) : nullptr;
        EXPECT_NE(a, nullptr) << attr;
        return a ? n->number(a) : 0;
    }
    // One particle's attribute; a failure naming it when the object does not have it.
    double num(TdynParticleShape* p, const char* attr, unsigned i) {
        double v = 0;
        EXPECT_TRUE(p->getAttribute(attr, i, v)) << attr << " " << i;
        return v;
    }
    T4dDblVector vec(TdynParticleShape* p, const char* attr, unsigned i) {
        T4dDblVector v;
        EXPECT_TRUE(p->getAttribute(attr, i, v)) << attr << " " << i;
        return v;
    }
    template <class L, class A> void setData(TdependNode* n, const Tattribute* a, A array, int element = -1) {
        putCached(n, a, makeData<L>(std::move(array)), element);
    }
    void setNumber(TdependNode* n, const Tattribute* a, double value, int element = -1) {
        putCached(n, a, value, element);
    }
    // The value of the last command of a text; a failure when it throws.
    TscriptValue eval(const std::string& text) {
        try {
            return session.engine().executeScript(text);
        } catch (const std::exception& e) {
            ADD_FAILURE() << text << ": " << e.what() << " " << errors.str();
        }
        return {};
    }

    Tsession session;
    std::ostringstream errors, output;

private:
    static void clearRunupOptions() {
        ToptionVars::remove("dynPrefRunUpToCurrentTime");
        ToptionVars::remove("dynPrefRunupFrom");
    }
};

// A fresh directory for the running test, named after the process and the test so that none meet.
inline std::filesystem::path makeScratchDir(const std::string& prefix) {
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                (prefix + std::to_string(::getpid()) + "-" +
                                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir);
    return dir;
}
// Removes it with all it holds; write permission comes back first, for the tests that take it away.
inline void removeScratchDir(const std::filesystem::path& dir) {
    std::error_code ec;
    std::filesystem::permissions(dir, std::filesystem::perms::owner_all, ec);
    std::filesystem::remove_all(dir, ec);
}

// A session whose workspace is a scratch directory of the test's own.
class DynWorkspaceTest : public DynSceneTest {
protected:
    explicit DynWorkspaceTest(std::string prefix) : fPrefix(std::move(prefix)) {}
    void SetUp() override {
        root = makeScratchDir(fPrefix);
        TworkspaceRoot::set(root.string());
        DynSceneTest::SetUp();
    }
    void TearDown() override {
        TworkspaceRoot::reset();
        removeScratchDir(root);
        DynSceneTest::TearDown();
    }

    std::filesystem::path root;

private:
    std::string fPrefix;
};

// A graph of the test's own, current while it runs: for nodes driven without the script layer.
class DynGraphTest : public ::testing::Test {
protected:
    void SetUp() override {
        fPrevious = TdependGraph::hasCurrent() ? &TdependGraph::current() : nullptr;
        TdependGraph::setCurrent(&graph);
    }
    void TearDown() override {
        graph.clear();
        TdependGraph::setCurrent(fPrevious);
    }

    TdependGraph graph;

private:
    TdependGraph* fPrevious = nullptr;
};
