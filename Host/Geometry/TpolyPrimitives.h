#pragma once

#include "Host/Geometry/TpolyMesh.h"

// Creation of the standard primitives, centred on the origin with Y up. Faces wind counter-clockwise seen
// from outside, and every primitive has uvs in [0, 1]. Sizes must be finite and not negative and
// subdivisions at least the stated minimum; anything else throws std::invalid_argument naming the function
// and the argument.

// In the XZ plane facing +Y: width along X, height along Z. u runs along +X, v along -Z.
TpolyMesh makePolyPlane(double width = 1, double height = 1, int subdivisionsX = 10, int subdivisionsY = 10);

// Width along X, height along Y, depth along Z; each side is a grid, and the six sides share their edges.
TpolyMesh makePolyCube(double width = 1, double height = 1, double depth = 1, int subdivisionsX = 1,
                       int subdivisionsY = 1, int subdivisionsZ = 1);

// Poles on the Y axis; subdivisionsAxis around it (at least 3), subdivisionsHeight from pole to pole
// (at least 2). Triangles at the poles, quads elsewhere.
TpolyMesh makePolySphere(double radius = 1, int subdivisionsAxis = 20, int subdivisionsHeight = 20);

// Axis Y from -height/2 to height/2. subdivisionsCaps 0 gives each cap one polygon; n above 0 gives a
// centre point and n rings.
TpolyMesh makePolyCylinder(double radius = 1, double height = 2, int subdivisionsAxis = 20,
                           int subdivisionsHeight = 1, int subdivisionsCaps = 0);

// Ring around the Y axis in the XZ plane: radius to the centre of the tube, sectionRadius of the tube.
// subdivisionsAxis around the ring, subdivisionsHeight around the tube (each at least 3).
TpolyMesh makePolyTorus(double radius = 1, double sectionRadius = 0.5, int subdivisionsAxis = 20,
                        int subdivisionsHeight = 20);
