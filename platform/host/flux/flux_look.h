#pragma once
/// @file
/// The look of the set: every colour that the widgets draw with, named once, each with its form in high contrast.
/// The theme uses them by name, as Edje colour classes; code uses them with flux::ColourOf().

#include <array>
#include <cstdint>

namespace flux {

struct Colour {
  uint8_t red = 0;
  uint8_t green = 0;
  uint8_t blue = 0;
  uint8_t alpha = 255;  ///< colours are not multiplied by it
};

enum class Token {
  kBackground,
  kBackgroundGlow,
  kPlate,
  kSunken,
  kSide,
  kLight,
  kHeader,
  kEdge,        ///< hairlines round plates
  kEdgeStrong,  ///< 3 px edges, in high contrast alone
  kText,
  kTextSecondary,
  kTextDisabled,
  kTextOnLight,
  kAccent,
  kAccentPlate,  ///< under the button that is proposed
  kTextOnAccent,
  kFocus,  ///< the plate under what has the focus
  kFocusText,
  kFocusTextSecondary,
  kFocusGlow,
  kTrack,  ///< what is not yet done of a progress
  kShadow,
  kError,
  kCount
};

struct Look {
  Token token;
  const char* name;  ///< of the colour class
  Colour normal;
  Colour contrast;
};

inline constexpr Colour kWhite{255, 255, 255};
inline constexpr Colour kBlack{0, 0, 0};
inline constexpr Colour kNone{0, 0, 0, 0};
inline constexpr Colour kGreen{0x89, 0xE4, 0x13};

inline constexpr std::array<Look, static_cast<size_t>(Token::kCount)> kLooks{{
    {Token::kBackground, "flux/background", {11, 17, 24}, kBlack},
    {Token::kBackgroundGlow, "flux/background_glow", {255, 255, 255}, kNone},
    {Token::kPlate, "flux/plate", {52, 66, 88, 150}, kBlack},
    {Token::kSunken, "flux/sunken", {6, 10, 16, 130}, kBlack},
    {Token::kSide, "flux/side", {24, 34, 48, 230}, kBlack},
    {Token::kLight, "flux/light", {238, 243, 248}, kWhite},
    {Token::kHeader, "flux/header", {255, 255, 255, 10}, kBlack},
    {Token::kEdge, "flux/edge", {190, 212, 240, 46}, kNone},
    {Token::kEdgeStrong, "flux/edge_strong", kNone, kWhite},
    {Token::kText, "flux/text", {242, 247, 252}, kWhite},
    {Token::kTextSecondary, "flux/text_secondary", {158, 174, 196}, kWhite},
    {Token::kTextDisabled, "flux/text_disabled", {158, 174, 196, 120}, {150, 150, 150}},
    {Token::kTextOnLight, "flux/text_on_light", {12, 30, 46}, kBlack},
    {Token::kAccent, "flux/accent", kGreen, kGreen},
    {Token::kAccentPlate, "flux/accent_plate", kGreen, kBlack},
    {Token::kTextOnAccent, "flux/text_on_accent", {10, 26, 4}, kGreen},
    {Token::kFocus, "flux/focus", {245, 248, 252}, kGreen},
    {Token::kFocusText, "flux/focus_text", {12, 30, 46}, kBlack},
    {Token::kFocusTextSecondary, "flux/focus_text_secondary", {60, 84, 108}, kBlack},
    {Token::kFocusGlow, "flux/focus_glow", {0x89, 0xE4, 0x13, 200}, kNone},
    {Token::kTrack, "flux/track", {90, 110, 136, 120}, {90, 90, 90}},
    {Token::kShadow, "flux/shadow", {0, 0, 0, 120}, kNone},
    {Token::kError, "flux/error", {255, 107, 107}, {255, 140, 140}},
}};

inline constexpr bool kLooksInOrder = [] {
  for (size_t i = 0; i < kLooks.size(); ++i)
    if (static_cast<size_t>(kLooks[i].token) != i) return false;
  return true;
}();
static_assert(kLooksInOrder);

}  // namespace flux
