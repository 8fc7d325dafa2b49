#pragma once
// The scene as commands see it: the graph plus the active selection.

#include "Host/Graph/TdependGraph.h"

#include <vector>

class Tmodel {
public:
    explicit Tmodel(TdependGraph& graph);
    ~Tmodel();
    TdependGraph& graph() { return fGraph; }

    const std::vector<TdependNode*>& activeList() const { return fSelection; }
    void setActiveList(std::vector<TdependNode*> nodes);
    void addToActiveList(TdependNode* node);
    void removeFromActiveList(TdependNode* node);
    void clearActiveList() { fSelection.clear(); }
    bool isActive(const TdependNode* node) const;

    // Nodes whose names match a pattern ('*' and '?' wildcards); the node of a
    // plug path ("ball.translateX") matches by its node part.
    std::vector<TdependNode*> findMatches(const std::string& pattern) const;

private:
    TdependGraph& fGraph;
    std::vector<TdependNode*> fSelection;
};

class TmodelList {
public:
    // The model of the current graph, made on first use.
    static Tmodel* activeModel();
    // Drops the model (a new session in tests).
    static void reset();
};

// A copy of the selection that can be put back.
class TselectionSnapshot {
public:
    int remember();
    int restore();
    const std::vector<TdependNode*>& nodes() const { return fNodes; }

private:
    std::vector<Tstring> fNames;
    std::vector<TdependNode*> fNodes;
};

// '*' and '?' matching.
bool wildcardMatch(const std::string& pattern, const std::string& text);
