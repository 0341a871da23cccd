// The few figures that the bench makes of many.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelp::bench {

// Takes the values by copy, for sorting; 0 when there are none. `fraction` from 0 to 1.
double Quantile(std::vector<double> values, double fraction);
inline double Median(std::vector<double> values) {
    return Quantile(static_cast<std::vector<double>&&>(values), 0.5);
}

// The exponent b of the power law y = a * x^b that fits best: the slope of the regression line
// through the points' logarithms.
double LogLogSlope(const std::vector<double>& x, const std::vector<double>& y);

}  // namespace kelp::bench
