#include "rendercommand.h"

#include <iostream>

#include "files.h"
#include "render.h"
#include "wholefile.h"
#include "wrongcall.h"

RenderCommand::RenderCommand(CLI::App& app)
    : command_(app.add_subcommand("render", "Draw the shapes and images in an archive as SVG")) {
  command_->footer(
      "Every shape stands where its coordinates say, with y downwards; an image has its corner at the origin, that of "
      "a\n"
      "measurement its own place. Circles, ellipses and their arcs are drawn as such, other shapes by samples a tenth\n"
      "of a pixel from them. What cannot be drawn is listed.");
  command_->add_option("archive", archive_, "An archive, of this tool or of any program");
  command_->add_option("-o,--output", output_, "The SVG file to write");
}

bool RenderCommand::run() const {
  if (archive_.empty()) throw WrongCall("which archive?");
  if (output_.empty()) throw WrongCall("-o FILE.svg is missing");
  requireDistinct("the archive and -o", {archive_, output_});
  const Rendering rendering = renderArchive(archive_);
  for (const auto& [name, count] : rendering.skipped) std::cout << "not drawn: " << count << " of " << name << '\n';
  if (rendering.svg.empty()) {
    if (rendering.damage) throw *rendering.damage;
    std::cerr << "vnx render: nothing found: no shape or image in " << archive_ << '\n';
    return false;
  }
  for (const auto& [name, count] : rendering.drawn)
    if (count > 0) std::cout << "drawn: " << count << " of " << name << '\n';
  writeText(output_, rendering.svg);
  if (rendering.damage) throw *rendering.damage;
  return true;
}
