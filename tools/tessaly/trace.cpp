// trace: reads verb trace files and shows what happened: by verb, verb after verb, or as a sequence chart.
#include "tools/tessaly/commands.h"
#include "tools/tessaly/trace_print.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace tessaly::tool {

namespace {

using namespace trace;

constexpr std::size_t MOST_VERBS = 1'000'000;  // so that no file fills the memory

class trace_file {
public:
    explicit trace_file(const std::string& name)
        : fd_(::open(name.c_str(), O_RDONLY | O_CLOEXEC)), error_(fd_ < 0 ? errno : 0)
    {}
    ~trace_file()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    trace_file(const trace_file&) = delete;
    trace_file& operator=(const trace_file&) = delete;

    int error() const { return error_; }

    // Hands on what there is up to the end, or until `go_on` says no. Result: false on an error.
    template <typename Take, typename GoOn>
    bool read(Take take, GoOn go_on)
    {
        while (error_ == 0 && go_on()) {
            const ssize_t bytes = ::read(fd_, buffer_.get(), BUFFER);
            if (bytes > 0)
                take(std::string_view(buffer_.get(), static_cast<std::size_t>(bytes)));
            else if (bytes == 0)
                break;
            else if (errno != EINTR)
                error_ = errno;
        }
        return error_ == 0;
    }

    // Whether it is shorter than what has been read, and is read from its beginning from now on.
    bool starts_again() const
    {
        struct stat now {};
        const off_t at = ::lseek(fd_, 0, SEEK_CUR);
        return ::fstat(fd_, &now) == 0 && at > now.st_size && ::lseek(fd_, 0, SEEK_SET) == 0;
    }

private:
    static constexpr std::size_t BUFFER = 256 * 1024;
    int fd_;
    int error_;
    std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(BUFFER);
};

// What is wrong with a file, by line.
std::string problems_of(const std::string& name, const parser& of)
{
    std::string text;
    for (const problem& each : of.problems())
        text += (text.empty() ? "" : "\n") + printable(name) + text_of(":%zu: ", each.line) + each.text;
    if (of.problem_count() > of.problems().size())
        text += text_of("\n... and %zu more lines like these", of.problem_count() - of.problems().size());
    return text;
}

void add(ending& to, int code, const std::string& message)
{
    to.code = std::max(to.code, code);
    to.message += (to.message.empty() ? "" : "\n") + message;
}

ending judge(const std::string& name, const parser& of)
{
    if (of.records() == 0 && of.problem_count() != 0)
        return {EXIT_USAGE, printable(name) + " is no verb trace:\n" + problems_of(name, of) +
                                "\nTESSALY_API_TRACE=FILE makes one, see docs/settings.md."};
    if (of.problem_count() != 0)
        return {EXIT_VERB_FAILED, problems_of(name, of) + "\nWhat could be read is shown, the rest left out."};
    if (of.records() == 0)
        return {EXIT_OK, printable(name) + " holds no records yet."};
    return {};
}

ending write_file(const std::string& name, const std::string& text)
{
    std::FILE* file = std::fopen(name.c_str(), "we");
    const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int error = errno;
    if (file != nullptr && std::fclose(file) == 0 && written)
        return {};
    return {EXIT_USAGE, "cannot write " + printable(name) + ": " + std::strerror(error)};
}

void draw_files(const story& of, const trace_options& options, ending& end)
{
    chart_options how{options.which, options.limit, "Verb trace " + options.files.front()};
    const auto write = [&](const std::string& name, chart_for use) {
        if (name.empty())
            return;
        const chart picture = draw(of, how, use);
        const ending written = write_file(name, use == chart_for::html_page ? page_of(of, how, picture) : picture.svg);
        if (written.code != EXIT_OK)
            add(end, written.code, written.message);
        else if (picture.left_out != 0)
            add(end, EXIT_OK,
                text_of("the chart shows the first %zu verbs and leaves out %zu: choose with --tp, --conversation or "
                        "--verb, "
                        "or raise --limit",
                        picture.shown, picture.left_out));
    };
    write(options.svg, chart_for::svg_file);
    write(options.html, chart_for::html_page);
}

}  // namespace

ending show_trace(stopper* stop, const trace_options& options, std::FILE* out)
{
    story told;
    ending end;
    const bool draws = !options.svg.empty() || !options.html.empty();
    const auto print = [&](const verb_run& verb) {
        if (options.which.passes(told, verb))
            std::fputs(line_of(told, verb, options.json).c_str(), out);
    };
    if (options.follow)
        told.on_end = print;

    for (const std::string& name : options.files) {
        trace_file file(name);
        parser reader([&](record&& each) { told.take(each); });
        const auto go_on = [&] {
            return told.verbs.size() < MOST_VERBS && (stop == nullptr || stop->cause() == stop_cause::none);
        };
        const auto take = [&](std::string_view bytes) { reader.feed(bytes); };
        file.read(take, go_on);
        while (options.follow && file.error() == 0 && go_on()) {
            reader.pause();
            if (!draws)
                told.drop_ended();
            if (!stop->pause(std::chrono::milliseconds(100)))
                break;
            if (file.starts_again())
                say("tessaly trace: " + printable(name) + " has become shorter and is read from its beginning");
            file.read(take, go_on);
        }
        if (file.error() != 0) {
            add(end, EXIT_USAGE, "cannot read " + printable(name) + ": " + std::strerror(file.error()));
            continue;
        }
        reader.end();
        if (const ending judged = judge(name, reader); !judged.message.empty())
            add(end, judged.code, judged.message);
    }
    if (told.verbs.size() >= MOST_VERBS)
        add(end, EXIT_VERB_FAILED, text_of("there are more than %zu verbs; the rest is left out", MOST_VERBS));
    if (told.verbs.empty())
        return end;

    told.sort();
    if (draws)
        draw_files(told, options, end);
    else if (options.list && !options.follow)
        for (const verb_run& verb : told.verbs)
            print(verb);
    else if (!options.follow)
        std::fputs(summary(told, options.which, options.json).c_str(), out);
    return end;
}

}  // namespace tessaly::tool
