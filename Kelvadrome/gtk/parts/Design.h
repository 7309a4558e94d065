// Made from design/tokens.json by scripts/make-design.mjs; change it there.
#pragma once

namespace kelvadrome::Design {

inline constexpr int space1 = 4;
inline constexpr int space2 = 8;
inline constexpr int space3 = 12;
inline constexpr int space4 = 16;
inline constexpr int space6 = 24;
inline constexpr int space8 = 36;
inline constexpr int radiusSmall = 5;
inline constexpr int radiusControl = 8;
inline constexpr int radiusBox = 12;
inline constexpr int radiusRound = 16;

/// The colours of each scheme, as names for the sheets: ours (kd_...) and the toolkit's.
inline constexpr const char* lightColours = R"css(
@define-color kd_ground #fafafa;
@define-color kd_side #ebebed;
@define-color kd_sheet #ffffff;
@define-color kd_ink #242327;
@define-color kd_soft #5d5b63;
@define-color kd_line #dcdbdf;
@define-color kd_edge #85838b;
@define-color kd_control #e6e5e9;
@define-color kd_control_over #d9d8de;
@define-color kd_chosen #ffffff;
@define-color kd_accent #1c71d8;
@define-color kd_accent_over #1a65c2;
@define-color kd_on_accent #ffffff;
@define-color kd_accent_text #1a5fb4;
@define-color kd_danger #b81c2c;
@define-color kd_danger_over #a01826;
@define-color kd_on_danger #ffffff;
@define-color kd_danger_edge #c01c28;
@define-color kd_danger_text #a51d2d;
@define-color kd_warn_text #7a4f00;
@define-color kd_good_text #176b3d;
@define-color kd_danger_wash #fdf1f1;
@define-color kd_warn_wash #fdf6e3;
@define-color kd_note_wash #f0f0f3;
@define-color kd_good_wash #eaf6ee;
@define-color kd_lamp_needs #a86a00;
@define-color kd_lamp_working #1f8a4c;
@define-color kd_lamp_waiting #1c71d8;
@define-color kd_lamp_failed #c01c28;
@define-color kd_lamp_idle #77757d;
@define-color accent_bg_color #1c71d8;
@define-color accent_fg_color #ffffff;
@define-color accent_color #1a5fb4;
@define-color destructive_bg_color #b81c2c;
@define-color destructive_fg_color #ffffff;
@define-color destructive_color #a51d2d;
@define-color error_bg_color #b81c2c;
@define-color error_fg_color #ffffff;
@define-color error_color #a51d2d;
@define-color warning_color #7a4f00;
@define-color success_color #176b3d;
@define-color window_bg_color #fafafa;
@define-color window_fg_color #242327;
@define-color view_bg_color #ffffff;
@define-color view_fg_color #242327;
@define-color headerbar_bg_color #ebebed;
@define-color headerbar_fg_color #242327;
@define-color card_bg_color #ffffff;
@define-color card_fg_color #242327;
@define-color dialog_bg_color #fafafa;
@define-color dialog_fg_color #242327;
@define-color popover_bg_color #ffffff;
@define-color popover_fg_color #242327;
)css";
inline constexpr const char* darkColours = R"css(
@define-color kd_ground #222226;
@define-color kd_side #2b2b30;
@define-color kd_sheet #303035;
@define-color kd_ink #f2f1f4;
@define-color kd_soft #b9b7bf;
@define-color kd_line #45444c;
@define-color kd_edge #8b8993;
@define-color kd_control #3f3f46;
@define-color kd_control_over #47474f;
@define-color kd_chosen #5a5a63;
@define-color kd_accent #1c71d8;
@define-color kd_accent_over #1766c8;
@define-color kd_on_accent #ffffff;
@define-color kd_accent_text #8bbcf5;
@define-color kd_danger #c01c28;
@define-color kd_danger_over #a81822;
@define-color kd_on_danger #ffffff;
@define-color kd_danger_edge #ff7b7b;
@define-color kd_danger_text #ff9c95;
@define-color kd_warn_text #f5d37a;
@define-color kd_good_text #8fe3ae;
@define-color kd_danger_wash #3d272b;
@define-color kd_warn_wash #3a3322;
@define-color kd_note_wash #3a3a40;
@define-color kd_good_wash #23372c;
@define-color kd_lamp_needs #f0b73a;
@define-color kd_lamp_working #57c785;
@define-color kd_lamp_waiting #6aa8f0;
@define-color kd_lamp_failed #ff7b7b;
@define-color kd_lamp_idle #94929c;
@define-color accent_bg_color #1c71d8;
@define-color accent_fg_color #ffffff;
@define-color accent_color #8bbcf5;
@define-color destructive_bg_color #c01c28;
@define-color destructive_fg_color #ffffff;
@define-color destructive_color #ff9c95;
@define-color error_bg_color #c01c28;
@define-color error_fg_color #ffffff;
@define-color error_color #ff9c95;
@define-color warning_color #f5d37a;
@define-color success_color #8fe3ae;
@define-color window_bg_color #222226;
@define-color window_fg_color #f2f1f4;
@define-color view_bg_color #303035;
@define-color view_fg_color #f2f1f4;
@define-color headerbar_bg_color #2b2b30;
@define-color headerbar_fg_color #f2f1f4;
@define-color card_bg_color #303035;
@define-color card_fg_color #f2f1f4;
@define-color dialog_bg_color #222226;
@define-color dialog_fg_color #f2f1f4;
@define-color popover_bg_color #303035;
@define-color popover_fg_color #f2f1f4;
)css";
inline constexpr const char* lightContrastColours = R"css(
@define-color kd_ground #ffffff;
@define-color kd_side #f2f2f3;
@define-color kd_sheet #ffffff;
@define-color kd_ink #000000;
@define-color kd_soft #3d3b42;
@define-color kd_line #77757d;
@define-color kd_edge #4f4d55;
@define-color kd_control #ececee;
@define-color kd_control_over #dcdbe0;
@define-color kd_chosen #ffffff;
@define-color kd_accent #0b50a8;
@define-color kd_accent_over #08408a;
@define-color kd_on_accent #ffffff;
@define-color kd_accent_text #0a458f;
@define-color kd_danger #9a0f1e;
@define-color kd_danger_over #820b18;
@define-color kd_on_danger #ffffff;
@define-color kd_danger_edge #8f0e1a;
@define-color kd_danger_text #83111f;
@define-color kd_warn_text #5c3b00;
@define-color kd_good_text #0d4f2b;
@define-color kd_danger_wash #fdf1f1;
@define-color kd_warn_wash #fdf6e3;
@define-color kd_note_wash #f0f0f3;
@define-color kd_good_wash #eaf6ee;
@define-color kd_lamp_needs #7a4a00;
@define-color kd_lamp_working #0f6a36;
@define-color kd_lamp_waiting #0b50a8;
@define-color kd_lamp_failed #8f0e1a;
@define-color kd_lamp_idle #5d5b63;
@define-color accent_bg_color #0b50a8;
@define-color accent_fg_color #ffffff;
@define-color accent_color #0a458f;
@define-color destructive_bg_color #9a0f1e;
@define-color destructive_fg_color #ffffff;
@define-color destructive_color #83111f;
@define-color error_bg_color #9a0f1e;
@define-color error_fg_color #ffffff;
@define-color error_color #83111f;
@define-color warning_color #5c3b00;
@define-color success_color #0d4f2b;
@define-color window_bg_color #ffffff;
@define-color window_fg_color #000000;
@define-color view_bg_color #ffffff;
@define-color view_fg_color #000000;
@define-color headerbar_bg_color #f2f2f3;
@define-color headerbar_fg_color #000000;
@define-color card_bg_color #ffffff;
@define-color card_fg_color #000000;
@define-color dialog_bg_color #ffffff;
@define-color dialog_fg_color #000000;
@define-color popover_bg_color #ffffff;
@define-color popover_fg_color #000000;
)css";
inline constexpr const char* darkContrastColours = R"css(
@define-color kd_ground #000000;
@define-color kd_side #161618;
@define-color kd_sheet #0d0d0f;
@define-color kd_ink #ffffff;
@define-color kd_soft #dedce3;
@define-color kd_line #96949e;
@define-color kd_edge #bdbbc4;
@define-color kd_control #2a2a2e;
@define-color kd_control_over #3a3a40;
@define-color kd_chosen #4a4a52;
@define-color kd_accent #0e54ad;
@define-color kd_accent_over #0b50a8;
@define-color kd_on_accent #ffffff;
@define-color kd_accent_text #b5d5ff;
@define-color kd_danger #a81320;
@define-color kd_danger_over #8f0e1a;
@define-color kd_on_danger #ffffff;
@define-color kd_danger_edge #ff9c95;
@define-color kd_danger_text #ffc0bb;
@define-color kd_warn_text #ffe39a;
@define-color kd_good_text #b0f2c7;
@define-color kd_danger_wash #2a1013;
@define-color kd_warn_wash #261f0b;
@define-color kd_note_wash #1c1c1f;
@define-color kd_good_wash #0b2214;
@define-color kd_lamp_needs #ffd46b;
@define-color kd_lamp_working #8fe3ae;
@define-color kd_lamp_waiting #b5d5ff;
@define-color kd_lamp_failed #ff9c95;
@define-color kd_lamp_idle #c6c4cc;
@define-color accent_bg_color #0e54ad;
@define-color accent_fg_color #ffffff;
@define-color accent_color #b5d5ff;
@define-color destructive_bg_color #a81320;
@define-color destructive_fg_color #ffffff;
@define-color destructive_color #ffc0bb;
@define-color error_bg_color #a81320;
@define-color error_fg_color #ffffff;
@define-color error_color #ffc0bb;
@define-color warning_color #ffe39a;
@define-color success_color #b0f2c7;
@define-color window_bg_color #000000;
@define-color window_fg_color #ffffff;
@define-color view_bg_color #0d0d0f;
@define-color view_fg_color #ffffff;
@define-color headerbar_bg_color #161618;
@define-color headerbar_fg_color #ffffff;
@define-color card_bg_color #0d0d0f;
@define-color card_fg_color #ffffff;
@define-color dialog_bg_color #000000;
@define-color dialog_fg_color #ffffff;
@define-color popover_bg_color #0d0d0f;
@define-color popover_fg_color #ffffff;
)css";

/// Kelvadrome/gtk/parts/desktop.css
inline constexpr const char* sheet = R"css(
/* The desktop's own rules. var(...) takes a token of design/tokens.json; scripts/make-design.mjs puts it in. */
.dim-label, .subtitle, .caption, .sidebar-detail, .sidebar-heading, .fact-name { opacity: 1; color: @kd_soft; }
text > placeholder { opacity: 1; color: @kd_soft; }
.warning { color: @kd_warn_text; }
.error { color: @kd_danger_text; }

.panel { padding: 16px; }
.panel-window, .strip-window { border-radius: 12px; box-shadow: inset 0 0 0 1px @kd_line; }
.panel-window.square, .strip-window.square, .bar-window.square { border-radius: 0; }
.question { padding: 12px 16px; box-shadow: 0 0 0 1px @kd_line; }
.question .summary { font-weight: 600; caret-color: transparent; }
.question .summary:focus-visible { outline: 2px solid @kd_accent_text; outline-offset: 2px; border-radius: 5px; }
.question.high-risk { box-shadow: 0 0 0 2px @kd_danger_edge; }
.question .risk { font-size: 86.7%; font-weight: 600; color: @kd_danger_text; background: @kd_danger_wash; padding: 0 8px; border-radius: 16px; }
.question .caption, .sidebar-detail, .fact-name { font-size: 86.7%; }
.panel .empty { padding: 16px 0; }
.question progressbar > trough, .question progressbar > trough > progress { min-height: 4px; }

.lamp { min-width: 10px; min-height: 10px; border-radius: 5px; background: transparent; box-shadow: inset 0 0 0 2px @kd_lamp_idle; }
.lamp.needsYou { background: @kd_lamp_needs; box-shadow: none; }
.lamp.working { background: @kd_lamp_working; box-shadow: none; }
.lamp.waiting { background: @kd_lamp_waiting; box-shadow: none; }
.lamp.failed { background: @kd_lamp_failed; box-shadow: none; border-radius: 2px; }

.sidebar-heading { font-weight: 700; font-size: 86.7%; padding: 16px 12px 4px; }
.count { font-size: 86.7%; font-weight: 700; padding: 2px 8px; border-radius: 16px; background: @kd_accent; color: @kd_on_accent; }
.inspector .log { font-family: monospace; font-size: 86.7%; }
.strip-window button { padding: 4px 12px; }
.strip-window button.lamp-button { padding: 0; min-width: 22px; min-height: 22px; border-radius: 11px; }
.question .key { font-size: 86.7%; font-weight: 700; }
.error-bar { padding: 8px 16px; background: @kd_danger_wash; border-bottom: 1px solid @kd_danger_edge; }
.list-heading { font-weight: 700; font-size: 86.7%; color: @kd_soft; padding: 12px 12px 4px; }
.caption { font-size: 86.7%; }

.bar-window { border-radius: 12px; box-shadow: inset 0 0 0 1px @kd_line; background: @kd_sheet; }
.bar-head { padding: 8px 16px; min-height: 40px; }
.bar-field { font-size: 17px; background: none; box-shadow: none; outline: none; border: none; padding: 0; min-height: 40px; }
.bar list { background: none; padding: 4px 8px; }
.bar scrolledwindow { border-top: 1px solid @kd_line; }
.bar-row { padding: 8px 8px; min-height: 28px; }
.bar list row { border-radius: 8px; }
.bar list row:selected { background: @kd_control; color: @kd_ink; }
.bar-foot { padding: 8px 16px; border-top: 1px solid @kd_line; }
.keycap { font-size: 86.7%; min-width: 14px; padding: 0 5px; border-radius: 5px; box-shadow: inset 0 0 0 1px @kd_edge; color: @kd_soft; }
.shot-strip { padding: 0 16px 8px; }
.shot { border-radius: 8px; background: @kd_control; box-shadow: 0 0 0 1px @kd_line; }
.shot-remove { min-width: 22px; min-height: 22px; padding: 0; margin: 3px; }
)css";

} // namespace kelvadrome::Design
