#pragma once
// Texts of the game's files are 8-bit: ASCII mostly, UTF-8 from newer tools, and the Windows code
// page 1252 from the older ones (accents in mission names, umlauts in author properties). What the
// tool prints must be text a terminal and a JSON reader accept, while the bytes it writes into
// files stay those of the source. Every listing and every --json writer goes through here.
#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

bool text_is_utf8(std::string_view bytes);
// Valid UTF-8 as it is; anything else read as Windows-1252.
std::string text_to_utf8(std::string_view bytes);
// The reverse, for names a user types in UTF-8 that an archive stores in 1252: false when the text
// has a character 1252 does not have (or is plain ASCII, which needs no second form).
bool text_to_1252(std::string_view utf8, std::string& out);
// For a terminal: as text_to_utf8, with control characters other than tab and line ends shown as '?'
// so that a name cannot move the cursor or change colours.
std::string text_for_display(std::string_view bytes);
std::string text_hex(std::string_view bytes);

// Makes every string, and every key, of `j` UTF-8; a string value in an object that was not keeps
// its exact bytes beside it as hex under "<key>_bytes".
void json_make_text(nlohmann::json& j);
void json_make_text(nlohmann::ordered_json& j);

// The JSON text of `j` after json_make_text; never throws on text.
std::string json_text(nlohmann::json j, int indent = 2);
std::string json_text(nlohmann::ordered_json j, int indent = 2);
