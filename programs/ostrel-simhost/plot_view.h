// A view that draws a picture of the run at its end, beside another one that prints.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "plot_script.h"
#include "view.h"

namespace ostrel_simhost {

// By the suffix of the file's name; empty for any other than .svg and .png.
std::optional<PlotFormat> plot_format_of(const std::string& file);

// Why no picture can be drawn to this file, or nothing. Leaves the file as it is.
std::string plot_obstacle(const std::string& file);

// `failure` is filled at the end when there is no picture, with one line that says why; it must outlive the view.
std::unique_ptr<View> make_plot_view(std::unique_ptr<View> printing, std::string file, std::string& failure);

}  // namespace ostrel_simhost
