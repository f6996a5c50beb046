// Texts as JSON has them.
#pragma once

#include <string>
#include <string_view>

/// The text in quotation marks, with what JSON wants escaped; bytes that are no UTF-8 become replacement characters.
std::string jsonText(std::string_view text);
