// Numbers in texts that people wrote.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// The numbers of a text, with a separator between each two and blanks around any; nothing when something else is in
/// it, or a number is not finite.
std::optional<std::vector<double>> readNumbers(std::string_view text, char separator = ',');
