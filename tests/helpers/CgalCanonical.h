#pragma once
// The canonical form of a CGAL triangulation's finite faces, comparable with
// vask_test::canonicalTriangles. Header-only, since only tests that link
// CGAL include it.
#include "helpers/TestHelpers.h"
#include <CGAL/number_utils.h>
#include <algorithm>
#include <vector>

namespace vask_test {

template <class CgalTriangulation> std::vector<CanonicalTriangle> cgalCanonicalTriangles(const CgalTriangulation& dt) {
  std::vector<CanonicalTriangle> vOut;
  for (auto f = dt.finite_faces_begin(); f != dt.finite_faces_end(); ++f) {
    KIRO_VASK2D::Point2 c[3];
    for (int i = 0; i < 3; ++i)
      c[i] =
          KIRO_VASK2D::Point2(CGAL::to_double(f->vertex(i)->point().x()), CGAL::to_double(f->vertex(i)->point().y()));
    vOut.push_back(canonicalTriangle(c[0], c[1], c[2]));
  }
  std::sort(vOut.begin(), vOut.end());
  return vOut;
}

} // namespace vask_test
