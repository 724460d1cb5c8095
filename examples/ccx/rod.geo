// A connecting rod, lengths in mm: a large eye, a small eye 150 mm away, a flat shank with a pocket on either side.
SetFactory("OpenCASCADE");
Cylinder(1) = {0, 0, -10, 0, 0, 20, 34};
Cylinder(2) = {150, 0, -9, 0, 0, 18, 20};
Box(3) = {0, -12, -7, 150, 24, 14};
BooleanUnion(4) = { Volume{1}; Delete; }{ Volume{2, 3}; Delete; };
Cylinder(5) = {0, 0, -20, 0, 0, 40, 24};
Cylinder(6) = {150, 0, -20, 0, 0, 40, 11};
Box(7) = {45, -7, 3, 75, 14, 10};
Box(8) = {45, -7, -13, 75, 14, 10};
BooleanDifference(9) = { Volume{4}; Delete; }{ Volume{5, 6, 7, 8}; Delete; };

// the bores are the cylinders that the cutting tools left
large() = Surface In BoundingBox {-24.1, -24.1, -10.1, 24.1, 24.1, 10.1};
small() = Surface In BoundingBox {138.9, -11.1, -9.1, 161.1, 11.1, 9.1};
Physical Volume("ROD") = {9};
Physical Surface("LARGE") = {large()};
Physical Surface("SMALL") = {small()};

Mesh.MeshSizeMin = 4.5;
Mesh.MeshSizeMax = 8;
Mesh.MeshSizeFromCurvature = 16;
Mesh.ElementOrder = 2;
Mesh.HighOrderOptimize = 2;
Mesh.SaveGroupsOfNodes = 1;
