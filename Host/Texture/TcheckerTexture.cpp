#include "Host/Texture/TcheckerTexture.h"

#include "Host/Graph/TdataBlock.h"
#include "Host/Graph/TdependGraph.h"

#include <cmath>

TDEFINE_NODE(TcheckerTexture, TdnVSTcheckerTexture, TdependNode, "checker", "CHKR")

namespace {
const char* const kC1[] = {"color1R", "color1G", "color1B"};
const char* const kC1s[] = {"c1r", "c1g", "c1b"};
const char* const kC2[] = {"color2R", "color2G", "color2B"};
const char* const kC2s[] = {"c2r", "c2g", "c2b"};
const char* const kOut[] = {"outColorR", "outColorG", "outColorB"};
const char* const kOuts[] = {"ocr", "ocg", "ocb"};
} // namespace

TdnVSTcheckerTexture::TdnVSTcheckerTexture()
    : color1("color1", "c1", makeIffTag("CHC1"), kC1, kC1s),
      color2("color2", "c2", makeIffTag("CHC2"), kC2, kC2s),
      transparency1("transparency1", "tr1", makeIffTag("CHT1")),
      transparency2("transparency2", "tr2", makeIffTag("CHT2")),
      repeatU("repeatU", "rpu", makeIffTag("CHRU")), repeatV("repeatV", "rpv", makeIffTag("CHRV")),
      outColor("outColor", "oc", makeIffTag("CHOC"), kOut, kOuts), uCoord("uCoord", "u", makeIffTag("CHUC")),
      vCoord("vCoord", "v", makeIffTag("CHVC")) {
    color1.setNativeDefaultData(1, 1, 1);
    color2.setNativeDefaultData(0, 0, 0);
    repeatU.setNativeDefaultData(4);
    repeatV.setNativeDefaultData(4);
    outColor.setWritable(false);
    outColor.setStorable(false);
}

void TdnVSTcheckerTexture::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&color1, &color2, &transparency1, &transparency2,
                                                            &repeatU, &repeatV, &outColor, &uCoord, &vCoord})
        list.addAttribute(a);
}

bool TdnVSTcheckerTexture::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    for (const Tattribute* a :
         std::initializer_list<const Tattribute*>{&color1, &color2, &repeatU, &repeatV, &uCoord, &vCoord})
        m.attributeAffects(a, &outColor);
    return true;
}

namespace {
struct Checker {
    T4dDblVector c1, c2;
    double t1, t2, ru, rv;
    // Which colour the cell of (u, v) takes: even cells the first.
    bool first(double u, double v) const {
        const long long i = static_cast<long long>(std::floor(u * ru));
        const long long j = static_cast<long long>(std::floor(v * rv));
        return ((i + j) & 1) == 0;
    }
};

Checker read(TdataBlock& block, TdnVSTcheckerTexture* vs) {
    return {block.inputValue(&vs->color1).asVector(),        block.inputValue(&vs->color2).asVector(),
            block.inputValue(&vs->transparency1).asDouble(), block.inputValue(&vs->transparency2).asDouble(),
            block.inputValue(&vs->repeatU).asDouble(),       block.inputValue(&vs->repeatV).asDouble()};
}
} // namespace

bool TcheckerTexture::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    const Tattribute* a = plug.attribute();
    if (a != &vs->outColor && a->parent() != &vs->outColor) return false;
    const Checker c = read(block, vs);
    const T4dDblVector col =
        c.first(block.inputValue(&vs->uCoord).asDouble(), block.inputValue(&vs->vCoord).asDouble()) ? c.c1
                                                                                                    : c.c2;
    for (int k = 0; k < 3; ++k) {
        TdataHandle h = block.outputValue(vs->outColor.children()[k]);
        h.set(col[k]);
        h.setClean();
    }
    block.setClean(&vs->outColor);
    return true;
}

void TcheckerTexture::sampleColors(const TdoubleArray& u, const TdoubleArray& v, T4dDblVectorArray& colours,
                                   TdoubleArray& transparencies) {
    const Checker c = read(normalBlock(), sVsData());
    const unsigned n = u.length();
    colours.changeLogicalSizeTo(n);
    transparencies.changeLogicalSizeTo(n);
    for (unsigned k = 0; k < n; ++k) {
        const bool first = c.first(u[k], k < v.length() ? v[k] : 0.0);
        colours[k] = first ? c.c1 : c.c2;
        transparencies[k] = first ? c.t1 : c.t2;
    }
}
