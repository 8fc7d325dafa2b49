#include "Commands/Scene/TdynObjectCmd.h"

#include "Commands/Scene/TdynStatic.h"

#include <algorithm>

TdependNode* TdynObjectCmd::simulatedObject(TdependNode* node) {
    if (TdynStatic::isADynamicObject(node)) return node;
    return TdynStatic::dynamicObject(TdagObject::cast(node));
}

std::vector<TdependNode*> TdynObjectCmd::simulatedObjects() const {
    std::vector<TdependNode*> out;
    for (unsigned i = 0; i < itemCount(); ++i)
        if (TdependNode* s = simulatedObject(item(i)); s && std::find(out.begin(), out.end(), s) == out.end())
            out.push_back(s);
    return out;
}
