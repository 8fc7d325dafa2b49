#include "Host/Texture/TtextureSampler.h"

#include "Host/Graph/TdependNode.h"
#include "Host/Graph/Tplug.h"

TtextureSampler* TtextureSampler::drivingTexture(const Tplug& plug) {
    if (plug.isNull()) return nullptr;
    if (auto* t = dynamic_cast<TtextureSampler*>(plug.source().node())) return t;
    // A texture may drive the children of a colour one by one.
    if (const TattributeCompound* c = asCompound(plug.attribute()))
        for (Tattribute* child : c->children())
            if (auto* t = dynamic_cast<TtextureSampler*>(
                    Tplug(plug.node(), child, plug.multiIndex()).source().node()))
                return t;
    return nullptr;
}
