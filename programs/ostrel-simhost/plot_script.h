// The picture as gnuplot is told to draw it, data and all.
#pragma once

#include <string>

#include "plot_data.h"

namespace ostrel_simhost {

enum class PlotFormat { svg, png };

// Draws to gnuplot's standard output.
std::string plot_script(const PlotData& data, PlotFormat format);

}  // namespace ostrel_simhost
