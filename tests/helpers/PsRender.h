#pragma once
// Rendering of PostScript pages with Ghostscript for tests that look at the
// picture: render to an RGB raster, find the ink, measure where it lies in
// page points.
#include <cstddef>
#include <string>
#include <vector>

namespace vask_test {

/** An RGB raster of an A4 page as Ghostscript renders it: rows from the top. */
struct PageImage {
  int width = 0;
  int height = 0;
  double dpi = 0.0;
  std::vector<unsigned char> rgb; // width * height * 3 bytes

  const unsigned char* pixel(int col, int row) const { return &rgb[(std::size_t(row) * width + col) * 3]; }
  /** Anything darker or more coloured than near-white paper. */
  bool isInk(int col, int row) const;
  /** The pixel under a page point (x right, y up, in points from the lower left corner). */
  const unsigned char* pixelAtPagePoint(double x, double y) const;
};

/** A box in page points; empty when no pixel was inked. */
struct PageBox {
  bool bEmpty = true;
  double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
};

/** True when the gs executable can be run. */
bool ghostscriptAvailable();

/** Renders the first page of psFile with gs on an A4 page at the given
 * resolution and reads it back. False when gs fails or reports an error in
 * the PostScript; the reason, with gs's own output, is put into error. */
bool renderPostScript(const std::string& psFile, int dpi, PageImage& image, std::string& error);

/** The bounding box of the inked pixels whose centres lie in the band
 * yLow <= y <= yHigh of the page, in page points (pixel edges). */
PageBox inkBox(const PageImage& image, double yLow = 0.0, double yHigh = 842.0);

/** Number of inked pixels in the band yLow <= y <= yHigh. */
std::size_t countInk(const PageImage& image, double yLow = 0.0, double yHigh = 842.0);

/** The whole content of a text file; empty when it can't be read. */
std::string readTextFile(const std::string& path);

} // namespace vask_test
