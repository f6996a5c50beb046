// Texts as JSON has them, and on one line.
#pragma once

#include <string>
#include <string_view>

/// The text in quotation marks, with what JSON wants escaped; bytes that are no UTF-8 become replacement characters.
std::string jsonText(std::string_view text);

/// The text on one line: control characters and U+FFFE and U+FFFF become question marks, bytes that are no UTF-8
/// replacement characters.
std::string lineText(std::string_view text);
