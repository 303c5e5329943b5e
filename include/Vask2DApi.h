// Export macro of libvask2d. The library is built with hidden visibility;
// only what carries VASK2D_API is part of its binary interface.
#pragma once

#define VASK2D_API __attribute__((visibility("default")))

namespace KIRO_VASK2D {
class Point2;
class Vector2;
class Segment2;
class Edge2;
class Triangle2;
class Circle2;
class Bbox2;
class VertexPair2;
class KiroTest;
class Dt2;
} // namespace KIRO_VASK2D
