#include "sheet.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <kit/receiver-kit.h>
#include <media/snapshot.h>
#include <unistd.h>

namespace demo {
namespace {

constexpr const char* head = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>A receiver, step by step</title>
<style>
body { margin: 0 auto; max-width: 84rem; padding: 1.5rem; background: #f4f5f7; color: #1c1f23;
       font: 15px/1.45 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; }
h1 { margin: 0; font-size: 1.6rem; }
header p { margin: .3rem 0 1.5rem; color: #5b636d; }
section { display: grid; grid-template-columns: minmax(19rem, 4fr) 8fr; gap: .6rem 1.8rem; margin-bottom: 1rem;
          padding: 1rem 1.2rem; background: #fff; border: 1px solid #e1e4e8; border-radius: .6rem; }
h2 { grid-column: 1 / -1; margin: 0; font-size: 1.05rem; }
h2 b { display: inline-block; min-width: 1.6rem; color: #2f6fb3; }
table { width: 100%; border-collapse: collapse; table-layout: fixed; }
td { padding: .3rem 0; border-top: 1px solid #eceef1; vertical-align: top; }
tr:first-child td { border-top: 0; }
.request { width: 46%; padding-right: .8rem;
           font: .86em/1.5 ui-monospace, "DejaVu Sans Mono", monospace; overflow-wrap: anywhere; }
.result { padding-right: .8rem; }
.time { width: 20%; text-align: right; white-space: nowrap; color: #5b636d; font-variant-numeric: tabular-nums; }
.remark { margin: .6rem 0 0; color: #2c7a4b; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(7.6rem, 1fr)); gap: .8rem;
            align-content: start; }
figure { margin: 0; }
.screen { display: flex; align-items: center; justify-content: center; aspect-ratio: 5 / 4; overflow: hidden;
          background: #000; color: #8b929b;
          border: 1px solid #c9ced4; border-radius: .25rem; }
img { width: 100%; height: 100%; object-fit: contain; }
figcaption { margin-top: .2rem; font-size: .8rem; color: #5b636d; }
figcaption b { color: #1c1f23; }
@media (max-width: 48rem) { section { grid-template-columns: 1fr; } }
</style>
</head>
<body>
<header>
<h1>A receiver, step by step</h1>
<p>The requests of each step with their results and times, and what the terminals used so far showed at its end.</p>
</header>
<main>
)html";

constexpr const char* tail = "</main>\n</body>\n</html>\n";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += c;
        }
    return result;
}

std::string rowOf(const Outcome& outcome) {
    return "<tr><td class=\"request\">" + escaped(outcome.request) + "</td><td class=\"result\">" +
           escaped(outcome.result) + "</td><td class=\"time\">" + escaped(outcome.time) + "</td></tr>\n";
}

std::string figureOf(const Picture& picture) {
    const std::string screen = picture.png.empty()
                                   ? "nothing"
                                   : "<img alt=\"" + escaped(picture.name) + "\" src=\"data:image/png;base64," +
                                         media::base64Of(picture.png) + "\">";
    return "<figure><div class=\"screen\">" + screen + "</div><figcaption><b>" + escaped(picture.terminal) + "</b> " +
           escaped(picture.name) + "<br>" + escaped(picture.details) + "</figcaption></figure>\n";
}

} // namespace

std::string sheetOf(const std::vector<Step>& steps) {
    std::string text = head;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step& step = steps[i];
        text +=
            "<section>\n<h2><b>" + std::to_string(i + 1) + "</b> " + escaped(step.title) + "</h2>\n<div>\n<table>\n";
        for (const Outcome& outcome : step.outcomes) text += rowOf(outcome);
        text += "</table>\n<p class=\"remark\">" + escaped(step.remark) + "</p>\n</div>\n<div class=\"pictures\">\n";
        for (const Picture& picture : step.pictures) text += figureOf(picture);
        text += "</div>\n</section>\n";
    }
    return text + tail;
}

namespace {

[[noreturn]] void fail(const std::filesystem::path& file) {
    throw receiver::ReceiverError("cannot write " + file.string() + ": " + std::strerror(errno));
}

} // namespace

void checkWritable(const std::filesystem::path& file) {
    const auto folder = std::filesystem::absolute(file).parent_path();
    const bool isNew = ::access(file.c_str(), F_OK) != 0;
    if (::access(isNew ? folder.c_str() : file.c_str(), W_OK) != 0) fail(file);
}

void write(const std::filesystem::path& file, const std::string& text) {
    errno = 0;
    std::ofstream out(file, std::ios::binary);
    if (!(out << text).flush()) fail(file);
}

} // namespace demo
