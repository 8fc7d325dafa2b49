#pragma once
// Attributes users add to nodes (addAttr, scene files), made from the type
// names scripts use: an attribute type ("double", "long", "bool", "enum",
// "time", "message", "double3") or a data type ("doubleArray", "vectorArray",
// "Int32Array", "string", "stringArray", "matrix", "mesh", "curve").

#include "Host/Graph/Tattribute.h"

#include <memory>
#include <string>

struct TuserAttributeType {
    std::string attributeType; // empty for a data type
    std::string dataType;      // empty for an attribute type
    bool known() const { return !attributeType.empty() || !dataType.empty(); }
};

// Throws std::invalid_argument naming the type when neither name is known.
std::unique_ptr<Tattribute> makeUserAttribute(const std::string& longName, const std::string& shortName,
                                              const TuserAttributeType& type);

// The type names that make such an attribute again; neither for a kind users cannot add.
TuserAttributeType userAttributeType(const Tattribute& attribute);
