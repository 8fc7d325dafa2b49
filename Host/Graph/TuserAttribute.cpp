#include "Host/Graph/TuserAttribute.h"

#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"

#include <stdexcept>
#include <utility>

namespace {

const std::pair<const char*, const TletterClass*>* dataTypes(std::size_t& count) {
    static const std::pair<const char*, const TletterClass*> kTypes[] = {
        {"doubleArray", &TdataDoubleArray::sClass},
        {"vectorArray", &TdataVectorArray::sClass},
        {"Int32Array", &TdataInt32Array::sClass},
        {"string", &TdataString::sClass},
        {"stringArray", &TdataStringArray::sClass},
        {"matrix", &TdataMatrix::sClass},
        {"mesh", &TdataMesh::sClass},
        {"curve", &TdataCurve::sClass},
    };
    count = std::size(kTypes);
    return kTypes;
}

} // namespace

std::unique_ptr<Tattribute> makeUserAttribute(const std::string& longName, const std::string& shortName,
                                              const TuserAttributeType& type) {
    const char* l = longName.c_str();
    const char* s = shortName.c_str();
    const TiffTag tag = makeIffTag("USER");
    if (!type.dataType.empty()) {
        std::size_t n = 0;
        const auto* types = dataTypes(n);
        for (std::size_t i = 0; i < n; ++i)
            if (type.dataType == types[i].first)
                return std::make_unique<TattributeTyped>(l, s, tag, *types[i].second);
        throw std::invalid_argument("unknown -dataType '" + type.dataType + "'");
    }
    const std::string& at = type.attributeType;
    if (at.empty() || at == "double" || at == "float") return std::make_unique<TattributeDouble>(l, s, tag);
    if (at == "long" || at == "short" || at == "byte") return std::make_unique<TattributeInt32>(l, s, tag);
    if (at == "bool") return std::make_unique<TattributeBoolean>(l, s, tag);
    if (at == "enum") return std::make_unique<TattributeEnum>(l, s, tag);
    if (at == "time") return std::make_unique<TattributeTime>(l, s, tag);
    if (at == "message") return std::make_unique<TattributeMessage>(l, s, tag);
    if (at == "double3" || at == "float3") return std::make_unique<Tattribute3Double>(l, s, tag);
    throw std::invalid_argument("unknown -attributeType '" + at + "'");
}

TuserAttributeType userAttributeType(const Tattribute& a) {
    switch (a.type()) {
    case TattrType::Double:
    case TattrType::Float:
        return {"double", {}};
    case TattrType::Int16:
    case TattrType::Int32:
    case TattrType::Byte:
        return {"long", {}};
    case TattrType::Boolean:
        return {"bool", {}};
    case TattrType::Enum:
        return {"enum", {}};
    case TattrType::Time:
        return {"time", {}};
    case TattrType::Message:
        return {"message", {}};
    case TattrType::Compound:
        return a.numericComponents() == 3 ? TuserAttributeType{"double3", {}} : TuserAttributeType{};
    case TattrType::Typed: {
        std::size_t n = 0;
        const auto* types = dataTypes(n);
        for (std::size_t i = 0; i < n; ++i)
            if (a.letterClasses().front()->derivesFrom(*types[i].second)) return {{}, types[i].first};
        return {};
    }
    default:
        return {};
    }
}
