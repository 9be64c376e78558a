// The table of subcommands. A new subcommand is one entry here, its run_*
// function and its help text (declared in cli.h).
#include "cli.h"

namespace sorn::tool {

const std::vector<Command> &commands() {
  static const std::vector<Command> table = {
      {"mser", "maximally stable extremal regions, drawn over the picture", kMserHelp, run_mser},
      {"hist", "256-bin histogram per channel, as a table and a bar plot", kHistHelp, run_hist},
      {"stats", "sum, mean, minimum and maximum per channel, optionally under a mask", kStatsHelp,
       run_stats},
      {"add", "element-wise sum of two images, or of an image and a constant", kAddHelp, run_add},
      {"sub", "element-wise difference", kSubHelp, run_sub},
      {"mul", "element-wise product, saturating", kMulHelp, run_mul},
      {"div", "element-wise quotient, rounded or truncated", kDivHelp, run_div},
      {"muladd", "a product added to (or taken from) an image, saturating", kMulAddHelp,
       run_muladd},
      {"and", "bitwise and", kAndHelp, run_and},
      {"or", "bitwise or", kOrHelp, run_or},
      {"xor", "bitwise exclusive or", kXorHelp, run_xor},
      {"not", "bitwise complement", kNotHelp, run_not},
      {"convert", "values mapped onto a range, or by a scale and an offset", kConvertHelp,
       run_convert},
      {"threshold", "black and white by a fixed threshold, Otsu's, or the local mean",
       kThresholdHelp, run_threshold},
      {"resize", "nearest-neighbour resizing by factors or to a size", kResizeHelp, run_resize},
      {"filter", "box, minimum, maximum or Gaussian over a rectangular window", kFilterHelp,
       run_filter},
      {"border", "the picture with a border of a given kind around it", kBorderHelp, run_border},
      {"morph", "erosion, dilation, opening, closing and the hats by a rectangle or a disc",
       kMorphHelp, run_morph},
      {"firefly", "three views mixed by weight: blurs at three scales, or gain and local rank",
       kFireflyHelp, run_firefly},
      {"rank", "how many pixels of the box around each stand in a relation to it", kRankHelp,
       run_rank},
  };
  return table;
}

int print_help(const char *text) {
  std::fputs(text, stdout);
  return kOk;
}

}  // namespace sorn::tool
