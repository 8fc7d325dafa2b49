#include "Commands/Caches/TdynExportFrame.h"

#include "Commands/Particles/TdynParticleShape.h"

TdynExportColumn TdynExportColumn::doubleArray(Tstring name, const double* values, unsigned n) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kDoubleArray;
    c.doubles = values;
    c.length = n;
    return c;
}
TdynExportColumn TdynExportColumn::vectorArray(Tstring name, const T4dDblVector* values, unsigned n) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kVectorArray;
    c.vectors = values;
    c.length = n;
    return c;
}
TdynExportColumn TdynExportColumn::intArray(Tstring name, const std::int32_t* values, unsigned n) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kIntArray;
    c.ints = values;
    c.length = n;
    return c;
}
TdynExportColumn TdynExportColumn::doubleScalar(Tstring name, double v) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kDoubleScalar;
    c.scalar[0] = v;
    return c;
}
TdynExportColumn TdynExportColumn::intScalar(Tstring name, std::int32_t v) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kIntScalar;
    c.scalar[0] = v;
    return c;
}
TdynExportColumn TdynExportColumn::vectorScalar(Tstring name, const T4dDblVector& v) {
    TdynExportColumn c;
    c.name = std::move(name);
    c.kind = kVectorScalar;
    c.scalar[0] = v.x;
    c.scalar[1] = v.y;
    c.scalar[2] = v.z;
    return c;
}

bool TdynExportFrame::kindOf(const Tattribute* a, TdynExportColumn::Kind& kind) {
    switch (a->type()) {
    case TattrType::Double:
    case TattrType::Float:
    case TattrType::Time:
        kind = TdynExportColumn::kDoubleScalar;
        return true;
    case TattrType::Int16:
    case TattrType::Int32:
    case TattrType::Boolean:
    case TattrType::Byte:
    case TattrType::Enum:
        kind = TdynExportColumn::kIntScalar;
        return true;
    case TattrType::Compound: {
        const TattributeCompound* c = asCompound(a);
        if (c->children().size() != 3) return false;
        for (const Tattribute* child : c->children())
            if (child->type() != TattrType::Double && child->type() != TattrType::Float) return false;
        kind = TdynExportColumn::kVectorScalar;
        return true;
    }
    case TattrType::Typed:
    case TattrType::Generic: {
        if (a->letterClasses().size() != 1) return false;
        const TletterClass* c = a->letterClasses().front();
        if (c == &TdataDoubleArray::sClass)
            kind = TdynExportColumn::kDoubleArray;
        else if (c == &TdataVectorArray::sClass)
            kind = TdynExportColumn::kVectorArray;
        else if (c == &TdataInt32Array::sClass)
            kind = TdynExportColumn::kIntArray;
        else
            return false;
        return true;
    }
    default:
        return false;
    }
}

bool TdynExportFrame::gather(TdynParticleShape& object, const std::vector<Tstring>& names, Tstring& error) {
    columns.clear();
    TdataBlock& block = object.normalBlock();
    count = block.inputValue(TdynParticleShape::sVsData()->count).asInt();
    if (count < 0) count = 0;
    for (const Tstring& name : names) {
        const Tattribute* a = object.attribute(name);
        if (!a) continue;
        TdynExportColumn c;
        if (!kindOf(a, c.kind) || a->isArray()) {
            error = "cannot write " + object.name() + "." + name + ": it holds no numbers or number arrays";
            return false;
        }
        c.name = a->name().empty() ? a->shortName() : a->name();
        TdataHandle h = block.inputValue(a);
        switch (c.kind) {
        case TdynExportColumn::kDoubleScalar:
        case TdynExportColumn::kIntScalar:
            c.scalar[0] = h.asDouble();
            break;
        case TdynExportColumn::kVectorScalar: {
            const T4dDblVector v = h.asVector();
            c.scalar[0] = v.x;
            c.scalar[1] = v.y;
            c.scalar[2] = v.z;
            break;
        }
        default: {
            c.keep = h.data();
            if (auto* d = c.keep.as<TdataDoubleArray>()) {
                c.doubles = d->array().data();
                c.length = d->length();
            } else if (auto* v = c.keep.as<TdataVectorArray>()) {
                c.vectors = v->array().data();
                c.length = v->length();
            } else if (auto* k = c.keep.as<TdataInt32Array>()) {
                c.ints = k->array().data();
                c.length = k->length();
            } // an unset array stays empty and is padded like a short one
            break;
        }
        }
        columns.push_back(std::move(c));
    }
    return true;
}
