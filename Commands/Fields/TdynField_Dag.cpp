// The field's attributes and what dirties its output.

#include "Commands/Fields/TdynField.h"

TDEFINE_ABSTRACT_NODE(TdynField, TdnVSTdynField, TdynAuxiliary, "field", "YFLD")

namespace {
const char* const kOffsetNames[] = {"volumeOffsetX", "volumeOffsetY", "volumeOffsetZ"};
const char* const kOffsetShort[] = {"vox", "voy", "voz"};
} // namespace

TdnVSTdynField::TdnVSTdynField()
    : magnitude("magnitude", "mag", makeIffTag("UMAG")),
      attenuation("attenuation", "att", makeIffTag("ATTN")),
      maxDistance("maxDistance", "max", makeIffTag("MAXD")),
      applyPerVertex("applyPerVertex", "apv", makeIffTag("APVX")),
      useMaxDistance("useMaxDistance", "umd", makeIffTag("UMDI")),
      inputData("inputData", "ind", makeIffTag("INPD")),
      inputPositions("inputPositions", "inp", makeIffTag("INPP"), TdataVectorArray::sClass),
      inputVelocities("inputVelocities", "inv", makeIffTag("INPV"), TdataVectorArray::sClass),
      inputMass("inputMass", "inm", makeIffTag("INPM"), TdataDoubleArray::sClass),
      deltaTime("deltaTime", "dt", makeIffTag("DELT")),
      inputForce("inputForce", "inf", makeIffTag("INPF"), TdataVectorArray::sClass),
      outputForce("outputForce", "of", makeIffTag("OUTF"), TdataVectorArray::sClass),
      volumeShape("volumeShape", "vol", makeIffTag("VLMS")),
      volumeExclusion("volumeExclusion", "vex", makeIffTag("VLEX")),
      volumeOffset("volumeOffset", "vfo", makeIffTag("VLFO"), kOffsetNames, kOffsetShort),
      sectionRadius("sectionRadius", "tsr", makeIffTag("VTSR")),
      volumeSweep("volumeSweep", "vsw", makeIffTag("VSWP")) {
    magnitude.setNativeDefaultData(1);
    magnitude.setKeyable(true);
    attenuation.setKeyable(true);
    maxDistance.setNativeDefaultData(-1);
    maxDistance.setKeyable(true);
    // The client's arrays arrive with the connection; they are not stored with the scene.
    for (Tattribute* c :
         std::initializer_list<Tattribute*>{&inputPositions, &inputVelocities, &inputMass, &deltaTime}) {
        c->setParent(&inputData);
        c->setStorable(false);
    }
    inputData.setArray(true);
    inputData.setIndexMatters(true);
    inputData.setStorable(false);
    inputForce.setArray(true);
    inputForce.setIndexMatters(true);
    inputForce.setStorable(false);
    outputForce.setArray(true);
    outputForce.setIndexMatters(true);
    outputForce.setStorable(false);
    outputForce.setWritable(false);
    outputForce.setComputeModifies(true);
    const char* shapes[] = {"none", "cube", "sphere", "cylinder", "cone", "torus"};
    for (int i = 0; i < 6; ++i)
        volumeShape.addField(shapes[i], i);
    sectionRadius.setNativeDefaultData(0.5);
    volumeSweep.setNativeDefaultData(6.28319);
}

void TdnVSTdynField::appendAttributes(TattributeList& list) {
    TdnVSTdynAuxiliary::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &magnitude, &attenuation, &maxDistance, &applyPerVertex, &useMaxDistance, &inputData,
             &inputPositions, &inputVelocities, &inputMass, &deltaTime, &inputForce, &outputForce,
             &volumeShape, &volumeExclusion, &volumeOffset, &sectionRadius, &volumeSweep})
        list.addAttribute(a);
}

bool TdnVSTdynField::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTdynAuxiliary::setupDependencies(m)) return false;
    // The field's own settings do not dirty the output: it is stale until the client asks in a new step.
    for (const Tattribute* a :
         std::initializer_list<const Tattribute*>{&ownerPosData, &ownerCentroid, &inputForce, &inputData,
                                                  &inputPositions, &inputVelocities, &inputMass, &deltaTime})
        m.attributeAffects(a, &outputForce);
    return true;
}
