#pragma once
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace KIRO_VASK2D {

/** Counts values in bins given by their upper limits; a value goes to the
 * first limit not below it, and values beyond the last limit to the last
 * bin. Keeps the sum, count, minimum and maximum as well. */
class Histogram {
public:
  Histogram(const std::string& title, const std::vector<double>& vBinLimits);
  void add(double value);
  unsigned getCount() const { return count; }
  double getMin() const { return minValue; }
  double getMax() const { return maxValue; }
  double getAverage() const { return count > 0 ? sum / count : 0.0; }
  /** Number of values in the bin with this upper limit. */
  unsigned getBinCount(double binLimit) const;
  void print(std::ostream& os) const;

private:
  std::string title;
  double sum;
  unsigned count;
  double minValue;
  double maxValue;
  std::map<double, unsigned> mBins;
};

} // namespace KIRO_VASK2D
