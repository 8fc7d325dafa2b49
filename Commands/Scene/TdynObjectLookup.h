#pragma once
// Finding particle objects by the names commands are given: shared by the
// particle, cache and export commands.

#include <string>

class TdynParticleShape;

// The particle object a name stands for: the shape itself, or the first
// particle shape under a transform; null when there is none.
TdynParticleShape* particleShapeNamed(const std::string& name);
// Splits "shape.pt[3]" into "shape" and 3; a plain name gives index -1.
// False for a malformed component.
bool splitParticleComponent(const std::string& text, std::string& object, int& index);
