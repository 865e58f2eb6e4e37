#pragma once
// The views the screenshots take: each sets up its model and window, saves its pictures through the
// Shot and checks what must be on screen. The table of screenshots_test.cpp runs them.
#include "screenshot_look.h"

namespace ombrik::test {

// The whole window (window_views.cpp).
void exampleWorldView(Shot&);  // main_window, unconnected_node, roto
void clipView(Shot&);          // imported_clip, main_window_clip, main_window_wipe
void worldsView(Shot&);        // worlds, render
// A blank project (blank_project_views.cpp).
void blankProjectView(Shot&);  // empty_project, inspector_empty, help_menu, shortcuts, folders, ocio_menu,
                               // inspector_mask, inspector_tracker, curve_editor, group_closed, group_open,
                               // node_editor_armed_input, node_editor_marquee
// The panels (panel_views.cpp).
void aiPanelsView(Shot&);  // ai_bodymatte, ai_objectmask, ai_magicmask, ai_denoise, ai_greenkeyai, ai_retime
void timelineView(Shot&);  // timeline_workspace, timeline_settings
// The node editor (editor_views.cpp).
void nodeEditorView(Shot&);  // node_editor_add_menu, node_editor_added, user_nodes_search, user_nodes_menu,
                             // user_nodes_bar_menu

}  // namespace ombrik::test
