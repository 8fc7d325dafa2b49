#pragma once
// A node class's static data: its attribute descriptors, in their fixed
// order, and which attribute dirties which.

#include "Host/Graph/Tattribute.h"

#include <unordered_map>
#include <vector>

class TdependencyMatrix {
public:
    // `from` dirties `to` when it changes.
    void attributeAffects(const Tattribute* from, const Tattribute* to, int flag = 0) {
        fPairs.push_back({from, to});
    }
    struct Pair {
        const Tattribute* from;
        const Tattribute* to;
    };
    const std::vector<Pair>& pairs() const { return fPairs; }

private:
    std::vector<Pair> fPairs;
};

class TdependNodeVS {
public:
    TdependNodeVS();
    virtual ~TdependNodeVS();
    TdependNodeVS(const TdependNodeVS&) = delete;
    TdependNodeVS& operator=(const TdependNodeVS&) = delete;

    virtual void appendAttributes(TattributeList& list);
    virtual bool setupDependencies(TdependencyMatrix& m);

    // Runs appendAttributes and setupDependencies once and builds the lookup tables.
    void initializeClass();
    void cleanupClass();
    bool isInitialized() const { return fInitialized; }

    unsigned attributeCount() const { return fList.count(); }
    Tattribute* attribute(unsigned i) const { return fList[i]; }
    Tattribute* findAttribute(const Tstring& name) const;
    // Attributes that `index` dirties directly (children of compounds included).
    const std::vector<int>& affects(int index) const { return fAffects[index]; }
    // Whether anything of the node dirties the attribute: such values are computed.
    bool isAffected(int index) const { return fAffected[index]; }

    // Attributes every node has.
    TattributeMessage message;
    TattributeBoolean caching;
    TattributeEnum nodeState;

private:
    TattributeList fList;
    std::unordered_map<Tstring, int> fByName;
    std::vector<std::vector<int>> fAffects;
    std::vector<bool> fAffected;
    bool fInitialized = false;
};
