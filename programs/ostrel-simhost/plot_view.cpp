#include "plot_view.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plot_data.h"
#include "shared/child_process.h"

namespace ostrel_simhost {

namespace {

// Only the last thing that gnuplot says is the complaint; before it stands the line of the script.
std::string last_line(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text.substr(text.rfind('\n') + 1);
}

std::string not_run(int error) {
    return fmt::format("gnuplot can't be run: {} (package gnuplot-nox)", std::strerror(error));
}

// An empty text: the picture is there.
std::string draw(const PlotData& data, const std::string& file) {
    const std::string script = plot_script(data, plot_format_of(file).value_or(PlotFormat::svg));
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        return fmt::format("{}: {}", file, std::strerror(errno));
    }
    shared::ChildProcess gnuplot;
    gnuplot.command = {"gnuplot"};
    gnuplot.input = script;
    gnuplot.output_fd = fd;
    const shared::ChildEnd end = shared::run_child(gnuplot);
    const bool written = lseek(fd, 0, SEEK_END) != 0;
    const bool closed = close(fd) == 0;
    if (end.started && end.exit_code == 0 && written && closed) {
        return "";
    }
    unlink(file.c_str());
    return !end.started               ? not_run(end.error_number)
           : end.error_output.empty() ? "gnuplot failed and doesn't say why"
                                      : fmt::format("gnuplot failed: {}", last_line(end.error_output));
}

class PlotView final : public View {
public:
    PlotView(std::unique_ptr<View> printing, std::string file, std::string& failure)
        : printing_(std::move(printing)), file_(std::move(file)), failure_(failure) {}

    void begin(const RunHead& head, const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
               const simhost::Totals& totals, int paths) override {
        printing_->begin(head, rows, addresses, totals, paths);
        record_ = PlotRecord(head.title.empty() ? head.scenario_file : head.title);
        record_.state(0, rows);
    }

    void serving(const std::string& url, const std::vector<std::string>& commands) override {
        printing_->serving(url, commands);
    }

    void happening(const Happening& happening) override {
        printing_->happening(happening);
        if (happening.kind == Happening::Kind::action) {
            record_.event(happening.time, happening.text);
        } else if (happening.kind == Happening::Kind::violation) {
            record_.event(happening.time, "invariant broken: " + happening.text);
        }
    }

    void state(const StateRecord& state) override { record_.state(state.time, state.rows); }

    void pass(const PassRecord& pass) override {
        printing_->pass(pass);
        record_.state(pass.ended, pass.rows);
        record_.pass(pass.ended, pass.changed_something());
    }

    void end(const RunOutcome& outcome, const Verdict& verdict) override {
        printing_->end(outcome, verdict);
        record_.state(outcome.ended_at, outcome.rows);
        failure_ = draw(record_.finish(outcome.ended_at), file_);
    }

private:
    const std::unique_ptr<View> printing_;
    const std::string file_;
    std::string& failure_;
    PlotRecord record_;
};

}  // namespace

std::optional<PlotFormat> plot_format_of(const std::string& file) {
    return file.ends_with(".svg")   ? std::optional(PlotFormat::svg)
           : file.ends_with(".png") ? std::optional(PlotFormat::png)
                                    : std::nullopt;
}

std::string plot_obstacle(const std::string& file) {
    const bool is_there = access(file.c_str(), F_OK) == 0;
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        return fmt::format("{}: {}", file, std::strerror(errno));
    }
    close(fd);
    if (!is_there) {
        unlink(file.c_str());
    }
    shared::ChildProcess gnuplot;
    gnuplot.command = {"gnuplot", "--version"};
    const shared::ChildEnd end = shared::run_child(gnuplot);
    return end.started ? "" : not_run(end.error_number);
}

std::unique_ptr<View> make_plot_view(std::unique_ptr<View> printing, std::string file, std::string& failure) {
    return std::make_unique<PlotView>(std::move(printing), std::move(file), failure);
}

}  // namespace ostrel_simhost
