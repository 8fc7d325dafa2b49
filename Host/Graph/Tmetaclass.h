#pragma once
// Run-time type records of node classes and their registration.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class TdependNode;
class TdependNodeVS;

class Tmetaclass {
public:
    using Constructor = TdependNode* (*)(const Tmetaclass*);
    Tmetaclass(const char* typeName, std::size_t size, Constructor ctor, std::uint32_t iffTag, Tmetaclass* parent,
               unsigned flags)
        : fTypeName(typeName), fSize(size), fConstruct(ctor), fIffTag(iffTag), fParent(parent), fFlags(flags) {}

    const char* typeName() const { return fTypeName; }
    std::size_t instanceSize() const { return fSize; }
    std::uint32_t iffTag() const { return fIffTag; }
    const Tmetaclass* parent() const { return fParent; }
    unsigned flags() const { return fFlags; }
    bool derivesFrom(const Tmetaclass& other) const {
        for (const Tmetaclass* m = this; m; m = m->fParent)
            if (m == &other) return true;
        return false;
    }
    TdependNode* construct() const { return fConstruct ? fConstruct(this) : nullptr; }
    bool isAbstract() const { return fConstruct == nullptr; }

private:
    const char* fTypeName;
    std::size_t fSize;
    Constructor fConstruct;
    std::uint32_t fIffTag;
    Tmetaclass* fParent;
    unsigned fFlags;
};

// Ties a class's metaclass to its static functions; what the graph registers.
class TdependNodeMetaClass {
public:
    TdependNodeMetaClass(Tmetaclass& meta, TdependNodeVS* (*vsBaseData)(), const char* (*typeName)(),
                         std::uint32_t (*iffTag)(), void (*initializeClass)(), void (*cleanupClass)(), int extra)
        : fMeta(meta), fVsBaseData(vsBaseData), fTypeName(typeName), fIffTag(iffTag),
          fInitializeClass(initializeClass), fCleanupClass(cleanupClass), fExtra(extra) {}

    Tmetaclass& metaclass() const { return fMeta; }
    TdependNodeVS* vsData() const { return fVsBaseData(); }
    const char* typeName() const { return fTypeName(); }
    std::uint32_t iffTag() const { return fIffTag(); }
    void initializeClass() const { fInitializeClass(); }
    void cleanupClass() const { fCleanupClass(); }
    int extra() const { return fExtra; }

private:
    Tmetaclass& fMeta;
    TdependNodeVS* (*fVsBaseData)();
    const char* (*fTypeName)();
    std::uint32_t (*fIffTag)();
    void (*fInitializeClass)();
    void (*fCleanupClass)();
    int fExtra;
};

// The registered node types. A function-local registry, so registering from
// static constructors in any link order is safe.
class TnodeTypeRegistry {
public:
    static void add(TdependNodeMetaClass* m);
    static const TdependNodeMetaClass* find(const std::string& typeName);
    static const std::vector<TdependNodeMetaClass*>& all();
    // Frees every class's static data (library unload).
    static void cleanupAll();
};

// Declares the static and virtual type functions of a node class `Cls` whose
// attribute class is `VS`.
#define TDECLARE_NODE(Cls, VS)                                                                               \
public:                                                                                                      \
    static Tmetaclass& sMetaclass();                                                                         \
    static VS* sVsData();                                                                                    \
    static const char* sTypeName();                                                                          \
    static std::uint32_t sIffTag();                                                                          \
    static bool sMpSafe;                                                                                     \
    static void sInitializeClass();                                                                          \
    static void sCleanupClass();                                                                             \
    static TdependNode* construct(const Tmetaclass* m);                                                      \
    const char* typeName() const override { return sTypeName(); }                                            \
    std::uint32_t iffTag() const override { return sIffTag(); }                                              \
    TdependNodeVS* vsData() const override { return sVsData(); }                                             \
    const Tmetaclass& typeof() const override { return sMetaclass(); }                                       \
    static Cls* cast(TdependNode* n) { return n && n->typeof().derivesFrom(sMetaclass()) ? static_cast<Cls*>(n) : nullptr; } \
                                                                                                             \
private:

// Defines what TDECLARE_NODE declared and registers a concrete node type at
// static construction. `Base` is the parent class. The attribute object is built
// on first use of sVsData.
#define TDEFINE_NODE_COMMON(Cls, VS, Base, TypeName, Tag, Ctor)                                               \
    namespace {                                                                                              \
    VS* g_##Cls##_vs = nullptr;                                                                              \
    }                                                                                                        \
    Tmetaclass& Cls::sMetaclass() {                                                                          \
        static Tmetaclass m(TypeName, sizeof(Cls), Ctor, makeIffTag(Tag), &Base::sMetaclass(), 0);           \
        return m;                                                                                            \
    }                                                                                                        \
    VS* Cls::sVsData() {                                                                                     \
        if (!g_##Cls##_vs) {                                                                                 \
            g_##Cls##_vs = new VS;                                                                           \
            g_##Cls##_vs->initializeClass();                                                                 \
        }                                                                                                    \
        return g_##Cls##_vs;                                                                                 \
    }                                                                                                        \
    const char* Cls::sTypeName() { return TypeName; }                                                        \
    std::uint32_t Cls::sIffTag() { return makeIffTag(Tag); }                                                 \
    bool Cls::sMpSafe = false;                                                                               \
    void Cls::sInitializeClass() { sVsData(); }                                                              \
    void Cls::sCleanupClass() {                                                                              \
        delete g_##Cls##_vs;                                                                                 \
        g_##Cls##_vs = nullptr;                                                                              \
    }                                                                                                        \
    namespace {                                                                                              \
    TdependNodeVS* Cls##_vsBase() { return Cls::sVsData(); }                                                 \
    struct Cls##_Registrar {                                                                                 \
        Cls##_Registrar() {                                                                                  \
            static TdependNodeMetaClass meta(Cls::sMetaclass(), &Cls##_vsBase, &Cls::sTypeName, &Cls::sIffTag, \
                                             &Cls::sInitializeClass, &Cls::sCleanupClass, 0);                \
            TdependGraph::registerNodeType(&meta);                                                           \
        }                                                                                                    \
    } g_##Cls##_registrar;                                                                                   \
    }

#define TDEFINE_NODE(Cls, VS, Base, TypeName, Tag)                                                           \
    TDEFINE_NODE_COMMON(Cls, VS, Base, TypeName, Tag, &Cls::construct)                                       \
    TdependNode* Cls::construct(const Tmetaclass* m) {                                                       \
        return (!m || m->derivesFrom(sMetaclass())) ? new Cls : nullptr;                                     \
    }

// A class that is only a base: registered for its type name, never made.
#define TDEFINE_ABSTRACT_NODE(Cls, VS, Base, TypeName, Tag)                                                  \
    TDEFINE_NODE_COMMON(Cls, VS, Base, TypeName, Tag, nullptr)                                               \
    TdependNode* Cls::construct(const Tmetaclass*) { return nullptr; }
