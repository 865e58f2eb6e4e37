#include "engine/kernel_stages.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace ombrik {

namespace {

// GLSL as tokens: identifiers, numbers, comments and spaces kept whole, other characters alone.
struct Token {
  std::string text;
  bool ident = false;
  bool blank = false;  // spaces or a comment
};

bool identStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool identChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

std::vector<Token> tokenize(const std::string& s) {
  std::vector<Token> out;
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t start = i;
    Token t;
    if (identStart(s[i])) {
      while (i < s.size() && identChar(s[i])) ++i;
      t.ident = true;
    } else if (std::isdigit(static_cast<unsigned char>(s[i]))) {
      while (i < s.size() && (identChar(s[i]) || s[i] == '.')) ++i;
    } else if (s.compare(i, 2, "//") == 0) {
      i = std::min(s.find('\n', i), s.size());
      t.blank = true;
    } else if (s.compare(i, 2, "/*") == 0) {
      const std::size_t end = s.find("*/", i + 2);
      i = end == std::string::npos ? s.size() : end + 2;
      t.blank = true;
    } else if (std::isspace(static_cast<unsigned char>(s[i]))) {
      while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
      t.blank = true;
    } else {
      ++i;
    }
    t.text = s.substr(start, i - start);
    out.push_back(std::move(t));
  }
  return out;
}

// The next token that is not blank after i; the size when none.
std::size_t after(const std::vector<Token>& t, std::size_t i) {
  for (++i; i < t.size() && t[i].blank; ++i) {
  }
  return i;
}
bool is(const std::vector<Token>& t, std::size_t i, const char* text) { return i < t.size() && t[i].text == text; }

std::string textureName(char letter, int number) { return std::string(1, letter) + char('0' + number); }

// "T3" → 3 for letter 'T'; -1 for anything else.
int textureNumber(const std::string& name, char letter) {
  return name.size() == 2 && name[0] == letter && name[1] >= '0' && name[1] <= '7' ? name[1] - '0' : -1;
}

// The call arguments starting after the '(' at `open`, each as its tokens' text without blanks;
// `end` receives the index of the closing ')'.
std::vector<std::string> arguments(const std::vector<Token>& t, std::size_t open, std::size_t* end) {
  std::vector<std::string> args(1);
  int depth = 0;
  for (std::size_t i = open + 1; i < t.size(); ++i) {
    const std::string& s = t[i].text;
    if (t[i].blank) continue;
    if (s == "(" || s == "[") ++depth;
    if ((s == ")" || s == "]") && depth-- == 0) {
      *end = i;
      return args;
    }
    if (s == "," && depth == 0) args.emplace_back();
    else args.back() += s;
  }
  *end = t.size();
  return {};
}

// Where a macro is defined in `text`: its body with the line continuations taken out.
std::string macroBody(const std::string& text, const std::string& name) {
  const std::string key = "#define " + name;
  std::size_t at = text.find(key);
  while (at != std::string::npos && at + key.size() < text.size() && identChar(text[at + key.size()]))
    at = text.find(key, at + 1);
  if (at == std::string::npos) return {};
  std::string body;
  for (std::size_t i = at + key.size(); i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\n') {
      body += '\n';
      ++i;
    } else if (text[i] == '\n') {
      break;
    } else {
      body += text[i];
    }
  }
  return body;
}


}  // namespace

std::vector<std::string> samplerHelpers(const std::string& header) {
  // name ( ... sampler2D ... ) { — a function taking a texture.
  std::vector<std::string> names;
  const auto t = tokenize(header);
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (!t[i].ident) continue;
    const std::size_t open = after(t, i);
    if (!is(t, open, "(")) continue;
    std::size_t end = 0;
    const auto args = arguments(t, open, &end);
    const bool takesTexture =
        std::any_of(args.begin(), args.end(), [](const std::string& a) { return a.find("sampler2D") != std::string::npos; });
    if (takesTexture && is(t, after(t, end), "{")) names.push_back(t[i].text);
  }
  return names;
}

std::string expandEffectMacros(const std::string& text, const std::string& convention) {
  if (text.find("FX_BEGIN") == std::string::npos) return text;
  const std::string begin = macroBody(convention, "FX_BEGIN"), end = macroBody(convention, "FX_END");
  std::string out;
  for (const auto& k : tokenize(text)) {
    if (!k.ident) out += k.text;
    else if (k.text == "FX_BEGIN") out += begin;
    else if (k.text == "FX_END") out += end;
    else if (k.text != "FX_ARGS") out += k.text;
  }
  std::string named;
  for (const auto& k : tokenize(out)) {
    if (k.text == "src") named += "T0";
    else if (k.text == "matte") named += "T1";
    else if (k.text == "aux") named += "T2";
    else if (k.text == "dst") named += "W3";
    else named += k.text;
  }
  return named;
}

StageShape stageShape(const std::string& text, const std::string& entry, const std::vector<std::string>& helpers) {
  static const std::set<std::string> groupWide = {"shared", "barrier", "gl_LocalInvocationID", "gl_WorkGroupID",
                                                  "gl_LocalInvocationIndex", "L0", "imageLoad", "memoryBarrierShared"};
  static const std::set<std::string> sampling = {"texture", "textureLod", "textureSize", "textureGrad", "textureOffset",
                                                 "texelFetchOffset", "textureGather"};
  const auto t = tokenize(text);
  if (std::none_of(t.begin(), t.end(), [&](const Token& k) { return k.text == entry; })) return {};
  // `g` stands for the thread's pixel only when that is all it is ever given.
  int gAssigned = 0;
  bool gIsPixel = false;
  for (std::size_t i = 0; i < t.size(); ++i)
    if (t[i].text == "g" && is(t, after(t, i), "=") && !is(t, after(t, after(t, i)), "=")) {
      ++gAssigned;
      gIsPixel = is(t, after(t, after(t, i)), "pixelID");
    }
  auto ownPixel = [&](const std::string& a) { return a == "ivec2(gid)" || a == "pixelID()" || (a == "g" && gIsPixel && gAssigned == 1); };

  bool groupUse = false, gathers = false, storeOwn = true;
  int stores = 0, storeIndex = -1, fetches = 0, textureUses = 0, imageUses = 0, imageNamed = 0;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (!t[i].ident) continue;
    const std::string& name = t[i].text;
    if (groupWide.count(name) || (name == "D" && is(t, after(t, i), "["))) groupUse = true;
    if (sampling.count(name) || std::find(helpers.begin(), helpers.end(), name) != helpers.end()) gathers = true;
    if (textureNumber(name, 'T') >= 0) ++textureUses;
    if (textureNumber(name, 'W') >= 0) ++imageNamed;
    const std::size_t open = after(t, i);
    if (!is(t, open, "(")) continue;
    std::size_t end = 0;
    const auto args = name == "texelFetch" || name == "imageStore" || name == "imageSize" ? arguments(t, open, &end)
                                                                                        : std::vector<std::string>{};
    if (name == "texelFetch" && args.size() == 3 && textureNumber(args[0], 'T') >= 0) {
      ++fetches;
      if (!ownPixel(args[1])) gathers = true;
    } else if (name == "imageStore" && args.size() == 3) {
      ++stores;
      ++imageUses;
      storeIndex = textureNumber(args[0], 'W');
      storeOwn = storeOwn && ownPixel(args[1]);
    } else if (name == "imageSize" && args.size() == 1 && textureNumber(args[0], 'W') >= 0) {
      ++imageUses;
    }
  }
  // One function and nothing else at file level: two copies in one program cannot clash.
  int depth = 0, blocks = 0;
  bool loose = false;
  for (const auto& k : t) {
    if (k.text == "{" && depth++ == 0) ++blocks;
    else if (k.text == "}") --depth;
    else if (k.text == ";" && depth == 0) loose = true;
  }
  StageShape shape;
  shape.output = storeIndex;
  shape.alone = blocks == 1 && !loose;
  shape.lead = !groupUse && stores == 1 && storeIndex >= 0 && storeOwn && imageUses == imageNamed;
  shape.pixelWise = shape.lead && !gathers && fetches == textureUses;
  return shape;
}

std::string stageText(const std::string& text, const std::string& entry, int n, const std::vector<StageInput>& inputs,
                      int output, int outSlot) {
  const std::string N = std::to_string(n);
  std::string out = "vec4 stageValue" + N + ";\n";
  out += "vec4 stageFetch" + N + "(ivec2 p, int lod) { return stageValue" + N + "; }\n";
  out += "void stageStore" + N + "(ivec2 p, vec4 v) {\n  stageValue" + N + " = stageHalf(v);\n";
  if (outSlot >= 0) out += "  imageStore(" + textureName('W', outSlot) + ", p, v);\n";
  out += "}\n";

  const auto t = tokenize(text);
  std::vector<int> closeAt;  // bracket depths where a P[...] index needs its ')'
  int depth = 0;
  auto input = [&](int q) -> const StageInput* { return q >= 0 && q < int(inputs.size()) ? &inputs[q] : nullptr; };
  for (std::size_t i = 0; i < t.size(); ++i) {
    const Token& k = t[i];
    if (!k.ident) {
      if (k.text == "[") ++depth;
      if (k.text == "]") {
        if (!closeAt.empty() && closeAt.back() == depth) {
          out += ")";
          closeAt.pop_back();
        }
        --depth;
      }
      out += k.text;
      continue;
    }
    const std::string& name = k.text;
    const std::size_t open = after(t, i), first = after(t, open), comma = after(t, first);
    const bool call = is(t, open, "(") && first < t.size();
    if (name == entry) {
      out += "stage" + N;
    } else if (name == "texelFetch" && call && is(t, comma, ",") && input(textureNumber(t[first].text, 'T'))) {
      const StageInput& in = *input(textureNumber(t[first].text, 'T'));
      if (in.fromStage >= 0) out += "stageFetch" + std::to_string(in.fromStage) + "(";
      else out += "texelFetch(" + textureName('T', in.slot) + ",";
      i = comma;
    } else if (name == "imageStore" && call && is(t, comma, ",") && textureNumber(t[first].text, 'W') == output) {
      out += "stageStore" + N + "(";
      i = comma;
    } else if (name == "imageSize" && call && is(t, comma, ")") && textureNumber(t[first].text, 'W') >= 0) {
      out += "stageGrid()";
      i = comma;
    } else if (const StageInput* in = input(textureNumber(name, 'T'))) {
      // An earlier stage's value is no texture: a kernel using it as one fails to build, and its
      // run goes back to passes one by one.
      if (in->fromStage >= 0) out += "noTextureFromAnEarlierStage";
      else out += textureName('T', in->slot);
    } else if (textureNumber(name, 'W') >= 0) {
      if (textureNumber(name, 'W') == output && outSlot >= 0) out += textureName('W', outSlot);
      else out += "noImageInAMergedStage";
    } else if (name == "P" && is(t, open, "[")) {
      out += "D[" + std::to_string(32 * n) + " + (";
      closeAt.push_back(++depth);
      i = open;
    } else {
      out += name;
    }
  }
  return out;
}

}  // namespace ombrik
