#include "helpers/PsRender.h"
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace vask_test {

namespace {

// A4 in PostScript points.
const double PAGE_HEIGHT_PT(842.0);

std::string shellQuote(const std::string& s) {
  std::string out("'");
  for (char ch : s) {
    if (ch == '\'') out += "'\\''";
    else out.push_back(ch);
  }
  return out + "'";
}

/** Reads the next header token of a PNM file, skipping comments. */
bool readPnmToken(std::istream& in, std::string& token) {
  token.clear();
  char ch;
  while (in.get(ch)) {
    if (ch == '#') {
      std::string comment;
      std::getline(in, comment);
      continue;
    }
    if (std::isspace(static_cast<unsigned char>(ch))) {
      if (!token.empty()) return true;
      continue;
    }
    token.push_back(ch);
  }
  return !token.empty();
}

bool readPpm(const std::string& path, PageImage& image, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = "no raster written: " + path;
    return false;
  }
  std::string magic, w, h, maxVal;
  if (!readPnmToken(in, magic) || magic != "P6" || !readPnmToken(in, w) || !readPnmToken(in, h) ||
      !readPnmToken(in, maxVal) || maxVal != "255") {
    error = "not an 8-bit binary PPM: " + path;
    return false;
  }
  // readPnmToken consumed the single white-space character after maxval.
  image.width = std::atoi(w.c_str());
  image.height = std::atoi(h.c_str());
  if (image.width <= 0 || image.height <= 0) {
    error = "bad raster size in " + path;
    return false;
  }
  image.rgb.assign(std::size_t(image.width) * image.height * 3, 0);
  in.read(reinterpret_cast<char*>(image.rgb.data()), std::streamsize(image.rgb.size()));
  if (in.gcount() != std::streamsize(image.rgb.size())) {
    error = "truncated raster in " + path;
    return false;
  }
  return true;
}

} // namespace

bool PageImage::isInk(int col, int row) const {
  const unsigned char* p(pixel(col, row));
  return p[0] < 230 || p[1] < 230 || p[2] < 230;
}

const unsigned char* PageImage::pixelAtPagePoint(double x, double y) const {
  int col(int(x * dpi / 72.0));
  int row(int((PAGE_HEIGHT_PT - y) * dpi / 72.0));
  col = col < 0 ? 0 : (col >= width ? width - 1 : col);
  row = row < 0 ? 0 : (row >= height ? height - 1 : row);
  return pixel(col, row);
}

bool ghostscriptAvailable() { return std::system("gs --version > /dev/null 2>&1") == 0; }

bool renderPostScript(const std::string& psFile, int dpi, PageImage& image, std::string& error) {
  const std::string raster(psFile + ".ppm");
  const std::string log(psFile + ".gslog");
  std::remove(raster.c_str());
  std::ostringstream cmd;
  cmd << "gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=ppmraw -sPAPERSIZE=a4 -dFIXEDMEDIA -r" << dpi
      << " -sOutputFile=" << shellQuote(raster) << " " << shellQuote(psFile) << " > " << shellQuote(log)
      << " 2>&1";
  const int rc(std::system(cmd.str().c_str()));
  const std::string gsOutput(readTextFile(log));
  std::remove(log.c_str());
  if (rc != 0 || gsOutput.find("Error") != std::string::npos) {
    error = "gs failed on " + psFile + " (status " + std::to_string(rc) + "):\n" + gsOutput;
    std::remove(raster.c_str());
    return false;
  }
  image.dpi = dpi;
  const bool bRead(readPpm(raster, image, error));
  std::remove(raster.c_str());
  return bRead;
}

PageBox inkBox(const PageImage& image, double yLow, double yHigh) {
  PageBox box;
  const double ptPerPixel(72.0 / image.dpi);
  for (int row = 0; row < image.height; ++row) {
    const double yCentre(PAGE_HEIGHT_PT - (row + 0.5) * ptPerPixel);
    if (yCentre < yLow || yCentre > yHigh) continue;
    for (int col = 0; col < image.width; ++col) {
      if (!image.isInk(col, row)) continue;
      const double x0(col * ptPerPixel), x1((col + 1) * ptPerPixel);
      const double y0(yCentre - 0.5 * ptPerPixel), y1(yCentre + 0.5 * ptPerPixel);
      if (box.bEmpty) {
        box.bEmpty = false;
        box.minX = x0, box.maxX = x1, box.minY = y0, box.maxY = y1;
        continue;
      }
      box.minX = std::min(box.minX, x0);
      box.maxX = std::max(box.maxX, x1);
      box.minY = std::min(box.minY, y0);
      box.maxY = std::max(box.maxY, y1);
    }
  }
  return box;
}

std::size_t countInk(const PageImage& image, double yLow, double yHigh) {
  std::size_t num(0);
  const double ptPerPixel(72.0 / image.dpi);
  for (int row = 0; row < image.height; ++row) {
    const double yCentre(PAGE_HEIGHT_PT - (row + 0.5) * ptPerPixel);
    if (yCentre < yLow || yCentre > yHigh) continue;
    for (int col = 0; col < image.width; ++col) num += image.isInk(col, row) ? 1 : 0;
  }
  return num;
}

std::string readTextFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

} // namespace vask_test
