#pragma once
// The views the screenshots take: each sets up its model and window, saves its pictures through the
// Shot and checks what must be on screen. The table of screenshots_test.cpp runs them.
#include "screenshot_look.h"

namespace ombrik::test {

// The whole window (window_views.cpp).
void exampleWorldView(Shot&);  // main_window
void clipAndWipeView(Shot&);   // main_window_clip, main_window_wipe
void maskToolsView(Shot&);     // roto
void renderView(Shot&);        // render
void worldsPanelView(Shot&);   // worlds
// What a new user meets first (first_hour_views.cpp).
void firstHourView(Shot&);        // empty_project, help_menu, shortcuts, folders, ocio_menu
void importedClipView(Shot&);     // imported_clip
void unconnectedNodeView(Shot&);  // unconnected_node
// The panels (panel_views.cpp).
void aiPanelsView(Shot&);     // ai_bodymatte, ai_objectmask, ai_magicmask, ai_denoise, ai_greenkeyai, ai_retime
void inspectorView(Shot&);    // inspector_mask, inspector_tracker, inspector_empty
void curveEditorView(Shot&);  // curve_editor
void timelineView(Shot&);     // timeline_workspace, timeline_settings
// The node editor (editor_views.cpp).
void nodeEditorView(Shot&);  // node_editor_add_menu, node_editor_added
void groupsView(Shot&);      // group_closed, group_open, node_editor_armed_input, node_editor_marquee
void myNodesView(Shot&);     // user_nodes_search, user_nodes_menu, user_nodes_bar_menu

}  // namespace ombrik::test
