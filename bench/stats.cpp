#include "stats.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kelp::bench {

double Quantile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    const auto nth = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(nth), values.end());
    return values[nth];
}

double LogLogSlope(const std::vector<double>& x, const std::vector<double>& y) {
    const auto n = static_cast<double>(x.size());
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double lx = std::log(x[i]);
        const double ly = std::log(y[i]);
        sumX += lx;
        sumY += ly;
        sumXX += lx * lx;
        sumXY += lx * ly;
    }
    return (n * sumXY - sumX * sumY) / (n * sumXX - sumX * sumX);
}

}  // namespace kelp::bench
