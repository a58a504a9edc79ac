#include "Documentation/TerminalPicture.h"

#include <algorithm>
#include <array>
#include <utility>

#include "CorvaneControl/Platform/Text.h"
#include "Documentation/Pages.h"

namespace CorvaneTests {

namespace {

using CorvaneControl::Text::characters;

// In tenths of a unit, so that no fraction is rounded.
constexpr std::size_t columnWidth = 84;
constexpr std::size_t rowHeight = 200;
constexpr std::size_t margin = 160;
constexpr std::size_t titleHeight = 320;

constexpr std::string_view head = R"(<style>
text { font: 14px ui-monospace, SFMono-Regular, Menlo, Consolas, "DejaVu Sans Mono", monospace }
text { white-space: pre; fill: #1f2328 } .window { fill: #ffffff; stroke: #8c8c8c } .bar { fill: #eaeef2 }
.bold { font-weight: bold } .dim { fill: #656d76 } .red { fill: #cf222e } .green { fill: #116329 }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3 } .window { fill: #0d1117 } .bar { fill: #21262d }
.dim { fill: #8b949e } .red { fill: #ff7b72 } .green { fill: #56d364 } }
</style>
)";

std::string inUnits(std::size_t tenths) {
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char character : text) {
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += character;
    }
  }
  return result;
}

/// How text is drawn, as the classes of the picture's style.
class Looks {
 public:
  /// Takes the parameters of "select graphic rendition" (ECMA-48). False at one that is unknown.
  bool take(std::string_view parameters) {
    while (true) {
      const std::size_t end = std::min(parameters.find(';'), parameters.size());
      if (!takeOne(parameters.substr(0, end))) return false;
      if (end == parameters.size()) return true;
      parameters.remove_prefix(end + 1);
    }
  }

  std::string classes() const {
    std::string result = weight_;
    if (!colour_.empty()) result += (result.empty() ? "" : " ") + colour_;
    return result;
  }

 private:
  bool takeOne(std::string_view parameter) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 4> known{
        {{"1", "bold"}, {"2", "dim"}, {"31", "red"}, {"32", "green"}}};
    if (parameter.empty() || parameter == "0") {
      weight_.clear();
      colour_.clear();
      return true;
    }
    const auto found =
        std::ranges::find(known, parameter, &std::pair<std::string_view, std::string_view>::first);
    if (found == known.end()) return false;
    (parameter.size() == 1 ? weight_ : colour_) = found->second;
    return true;
  }

  std::string weight_{};
  std::string colour_{};
};

/// The rows of a terminal in the making.
class Drawing {
 public:
  /// Draws text that has neither line feeds nor sequences.
  void text(std::string_view text, const Looks& looks) {
    const std::size_t blanks = std::min(text.find_first_not_of(' '), text.size());
    const std::string_view drawn = text.substr(blanks, text.find_last_not_of(' ') + 1 - blanks);
    const std::size_t begin = column_ + blanks;
    column_ += characters(text);
    widest_ = std::max(widest_, column_);
    if (drawn.empty()) return;
    const std::string classes = looks.classes();
    body_.append("<text").append(place(begin));
    // However wide the reader's font is, the columns stay below each other.
    body_.append(" textLength=\"").append(inUnits(characters(drawn) * columnWidth)).append("\"");
    if (!classes.empty()) body_.append(" class=\"").append(classes).append("\"");
    body_.append(">").append(escaped(drawn)).append("</text>\n");
  }

  void lineFeed() {
    column_ = 0;
    ++row_;
  }

  std::string picture(std::string_view title, std::size_t columns) const {
    const std::size_t width = std::max(columns, widest_) * columnWidth + 2 * margin;
    const std::size_t height = titleHeight + 2 * margin + (row_ + 1) * rowHeight;
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"-1 -1 ";
    svg.append(inUnits(width + 20)).append(" ").append(inUnits(height + 20)).append("\"");
    svg.append(size(width + 20, height + 20)).append(" role=\"img\" xml:space=\"preserve\">\n");
    svg.append("<title>").append(escaped(title)).append("</title>\n").append(head);
    svg.append("<rect class=\"window\" rx=\"8\"").append(size(width, height)).append("/>\n");
    svg.append("<rect class=\"bar\" x=\"1\" y=\"1\" rx=\"7\"");
    svg.append(size(width - 20, titleHeight - 10)).append("/>\n");
    svg.append("<text class=\"dim\" x=\"16\" y=\"21\">").append(escaped(title)).append("</text>\n");
    svg.append(body_);
    svg.append("<text").append(place(column_)).append(">\u2588</text>\n</svg>\n");
    return svg;
  }

 private:
  static std::string size(std::size_t width, std::size_t height) {
    return " width=\"" + inUnits(width) + "\" height=\"" + inUnits(height) + "\"";
  }

  /// Where the text of a column of this row stands: its left end on the line below it.
  std::string place(std::size_t column) const {
    return " x=\"" + inUnits(margin + column * columnWidth) + "\" y=\"" +
           inUnits(titleHeight + margin + row_ * rowHeight + 140) + "\"";
  }

  std::string body_{};
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  std::size_t widest_ = 0;
};

}  // namespace

std::optional<std::string> terminalPicture(std::string_view title, std::string_view printed,
                                           std::size_t columns) {
  Drawing drawing;
  Looks looks;
  while (!printed.empty()) {
    const std::size_t end = std::min(printed.find_first_of("\n\r\x1b"), printed.size());
    if (end > 0) {
      drawing.text(printed.substr(0, end), looks);
      printed.remove_prefix(end);
    } else if (printed.front() == '\n') {
      drawing.lineFeed();
      printed.remove_prefix(1);
    } else {
      const std::size_t last = printed.find('m');
      if (!printed.starts_with("\x1b[") || last == std::string_view::npos) return std::nullopt;
      if (!looks.take(printed.substr(2, last - 2))) return std::nullopt;
      printed.remove_prefix(last + 1);
    }
  }
  return drawing.picture(title, columns);
}

}  // namespace CorvaneTests
