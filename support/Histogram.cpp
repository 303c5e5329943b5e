#include "support/Histogram.h"
#include <ostream>

namespace KIRO_VASK2D {

Histogram::Histogram(const std::string& title_, const std::vector<double>& vBinLimits)
    : title(title_), sum(0.0), count(0), minValue(0.0), maxValue(0.0) {
  for (double limit : vBinLimits) mBins[limit] = 0;
}

void Histogram::add(double value) {
  if (count == 0 || value < minValue) minValue = value;
  if (count == 0 || value > maxValue) maxValue = value;
  sum += value;
  ++count;
  if (mBins.empty()) return;
  std::map<double, unsigned>::iterator it(mBins.lower_bound(value));
  if (it == mBins.end()) --it;
  ++it->second;
}

unsigned Histogram::getBinCount(double binLimit) const {
  std::map<double, unsigned>::const_iterator it(mBins.find(binLimit));
  return it == mBins.end() ? 0 : it->second;
}

void Histogram::print(std::ostream& os) const {
  if (count == 0) {
    os << "Empty histogram [ " << title << " ]" << std::endl;
    return;
  }
  os << title << " (avg=" << getAverage() << " , min=" << minValue << ", max=" << maxValue << "):" << std::endl;
  double lower(minValue < 0.0 ? minValue : 0.0);
  std::map<double, unsigned>::const_iterator last(mBins.end());
  if (!mBins.empty()) --last;
  for (std::map<double, unsigned>::const_iterator it = mBins.begin(); it != mBins.end(); ++it) {
    os << "  " << lower << " - " << it->first << ": " << it->second;
    if (it == last) os << "  max: " << maxValue;
    os << std::endl;
    lower = it->first;
  }
}

} // namespace KIRO_VASK2D
