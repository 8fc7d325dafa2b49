#pragma once
// A transform that can belong to an object (the owner) and acts from it: the
// shared base of fields, emitters and collision nodes.

#include "Host/Dag/Tshape.h"
#include "Host/Dag/Ttransform.h"
#include "Host/Data/TdataArrays.h"

#include <vector>

class TdynAuxiliary;
using TdynAuxiliaryPtrArray = std::vector<TdynAuxiliary*>;

class TdnVSTdynAuxiliary : public TdnVSTtransform {
public:
    TdnVSTdynAuxiliary();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    TattributeMessage owner;
    TattributeInt16 fromWhere;
    TattributeInt32 subsetId;
    TattributeBoolean positional;
    Tattribute3Double ownerCentroid;
    TattributeTyped ownerPosData;
    TattributeTyped ownerVelData;
};

class TdynAuxiliary : public Ttransform {
    TDECLARE_NODE(TdynAuxiliary, TdnVSTdynAuxiliary)
public:
    static TdnVSTdynAuxiliary* saVs() { return sVsData(); }
    // This node's own class's attributes (a derived class holds its own copies).
    TdnVSTdynAuxiliary* auxVs() const { return static_cast<TdnVSTdynAuxiliary*>(vsData()); }
    // This node's copy of an attribute of any class in its chain (matched by position).
    Tattribute* own(const Tattribute* attr) const {
        const int i = attr ? attr->index() : -1;
        return i >= 0 && static_cast<unsigned>(i) < attributeCount() ? attribute(i) : nullptr;
    }
    Tattribute* attrOwner() const { return &auxVs()->owner; }
    Tattribute* attrOwnerPosData() const { return &auxVs()->ownerPosData; }
    Tattribute* attrOwnerVelData() const { return &auxVs()->ownerVelData; }
    Tattribute3Double* attrOwnerCentroid() const { return &auxVs()->ownerCentroid; }

    // The node connected to `owner`, or null.
    TdependNode* ownerObject() const;
    // The owner when it is a shape, else null.
    Tshape* ownerShape() const;
    // The arrays of ownerPosData and ownerVelData as they stand after a pull, or null.
    const T4dDblVectorArray* ownerPositions(TdataBlock& block);
    const T4dDblVectorArray* ownerVelocities(TdataBlock& block);
    // The owner's world points when no array is connected: a mesh's points through its world matrix.
    bool ownerWorldPoints(TdataBlock& block, T4dDblVectorArray& out);
    T4dDblPoint ownerCentroid(TdataBlock& block);
    static bool canBeOwnedBy(const TdependNode* object);

    // Makes `object` the owner: its message, and for a particle object its cached world state (the
    // state after the previous step, so that no cycle forms) into the owner attributes.
    // False, with `why` set, when it cannot own the node.
    bool setOwner(TdependNode* object, std::string& why);

    // The transform's own matrices, computed from this class's copies of its attributes.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    TboundingBox boundingBox() override;
    // Not drawn by a display-less build; always 512, as a mask for the viewport.
    int excludeObjectDisplay() const { return 512; }
    virtual const char* baseObjectName() const { return "auxiliary#"; }
    static void getListOfAuxiliaries(TdynAuxiliaryPtrArray& out);
};
