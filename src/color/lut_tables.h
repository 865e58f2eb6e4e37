#pragma once
// Log curves, gamut matrices and camera words, converted from the reference tables.
// Generated: edit the source table and convert again, not this file.
#include <array>

namespace ombrik::lut_tables {

struct GenericRow {
  const char* id;
  const char* label;
  const char* shortLabel;
};

// In menu order.
inline constexpr std::array<GenericRow, 8> kGenerics{{
    {"logc3", "ARRI LogC3 → Rec.709", "LogC3"},
    {"logc4", "ARRI LogC4 → Rec.709", "LogC4"},
    {"slog3", "Sony S-Log3 / S-Gamut3.Cine → Rec.709", "S-Log3"},
    {"clog3", "Canon Log 3 → Rec.709", "C-Log3"},
    {"vlog", "Panasonic V-Log → Rec.709", "V-Log"},
    {"log3g10", "RED Log3G10 → Rec.709", "Log3G10"},
    {"bmdfilm", "Blackmagic Film Gen5 → Rec.709", "BMD Film"},
    {"applelog", "Apple Log (iPhone) → Rec.709", "Apple Log"},
}};

struct MatrixRow {
  const char* id;  // empty: every curve without a row of its own
  std::array<double, 9> m;  // rows
};

inline constexpr std::array<MatrixRow, 4> kMatrices{{
    {"logc3", {1.617523, -0.537287, -0.080237, -0.070573, 1.334613, -0.26404, -0.021102, -0.226954, 1.248056}},
    {"slog3", {1.6269474, -0.5401385, -0.0868089, -0.1785155, 1.4179409, -0.2394254, -0.0444361, -0.1959199, 1.240356}},
    {"vlog", {1.806576, -0.695697, -0.110879, -0.17009, 1.305955, -0.135865, -0.025206, -0.154468, 1.179674}},
    {"", {1.6605, -0.5876, -0.0728, -0.1246, 1.1329, -0.0083, -0.0182, -0.1006, 1.1187}},
}};

// The camera words of a clip's name and metadata, first matching group first.
struct DetectRow {
  std::array<const char*, 9> words;  // unused places are null
  const char* key;
};

inline constexpr std::array<DetectRow, 8> kDetectGroups{{
    {{"applelog", "apple log"}, "auto:applelog"},
    {{"alexa 35", "alexa35", "logc4"}, "auto:logc4"},
    {{"arri", "alexa", "logc"}, "auto:logc3"},
    {{"s-log3", "slog3", "sony", "ilme", "venice", "fx3", "fx6", "fx9", "fx30"}, "auto:slog3"},
    {{"canon", "c-log", "clog", "eos c"}, "auto:clog3"},
    {{"v-log", "vlog", "panasonic", "lumix", "varicam"}, "auto:vlog"},
    {{"red digital", "komodo", "v-raptor", "log3g10", "redcode", ".r3d"}, "auto:log3g10"},
    {{"blackmagic", "bmpcc", "ursa", "pyxis"}, "auto:bmdfilm"},
}};

}  // namespace ombrik::lut_tables
