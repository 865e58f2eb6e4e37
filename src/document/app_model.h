#pragma once
// The one central object: it owns the open world, the list of worlds and the media.
// Views read it and call its operations; nothing in the document depends on a view.
// Operations are split into files by subject (app_model_*.cpp).
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "color/ocio_display.h"
#include "document/history_state.h"
#include "document/media_trouble.h"
#include "document/node_layout.h"
#include "document/project_file.h"
#include "graph/batch.h"
#include "graph/edge.h"
#include "graph/graph_snapshot.h"
#include "graph/media_item.h"
#include "graph/node.h"
#include "graph/picture.h"
#include "graph/uuid.h"
#include "graph/world_group.h"
#include "groups/node_group.h"
#include "groups/user_nodes.h"
#include "editorial/render_queue.h"
#include "editorial/timeline.h"
#include "editorial/timeline_keys.h"
#include "editorial/timeline_render.h"
#include "tracking/roto_state.h"
#include "tracking/tracking_state.h"
#include "ai/ai_state.h"
#include "ai/object_boxes.h"

namespace ombrik {

namespace gpu {
class Texture;
}
class Engine;
struct JobResult;
struct Workers;
class ForwardReaders;
class TimelineReader;
class PackCopy;
struct PlayState;
class VideoSource;
struct SourcePicture;
class Scheduler;
class UserDefaults;
class Dialogs;
class AppLanguage;
struct ViewerBlank;

// One selected key of the curve editor: a parameter key and an index in its key list.
struct KeySel {
  std::string key;
  int i = 0;
  auto operator<=>(const KeySel&) const = default;
};

struct CompSize {
  int width = 0;
  int height = 0;
  bool operator==(const CompSize&) const = default;
};

class AppModel {
public:
  struct Options {
    bool installed = false;   // an installed program, not a development tree
    bool blankStart = false;  // OMBRIK_BLANK_START=1
    bool withEngine = true;   // false: no GPU work at all (pure document tests)
    std::shared_ptr<Scheduler> scheduler = nullptr;  // default: the Qt event loop
    std::string defaultsFile = {};  // a separate user-defaults file; empty: the program's
    bool openLastProject = false;   // the desktop start reopens the last project
    std::shared_ptr<Dialogs> dialogs = nullptr;       // file panels and alerts
    std::optional<std::filesystem::path> dataDir = {};  // default: the program's data folder
    std::function<void()> relaunch = nullptr;          // starts a new instance and ends this one
    std::optional<std::filesystem::path> userNodesDir = {};  // default: support/Nodes
  };
  static Options processOptions();

  AppModel() : AppModel(processOptions()) {}
  explicit AppModel(const Options& options);
  ~AppModel();
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  // The open world. Its Batch in _batches lags behind these until saveCurrentBatch().
  std::vector<Node> _nodes;
  std::vector<Edge> _edges;
  NodeLayout layout;

  std::vector<Batch> _batches;
  std::vector<MediaItem> _media;
  std::optional<Uuid> _currentBatchID;
  std::string _status;
  int _currentFrame = 0;
  int _frameCount = 100;  // a world without a clip plays 100 frames
  double _fps = 25;
  double _previewScale = 1;

  // ---- rendering (app_model_render.cpp)
  std::unique_ptr<Engine> engine;  // null when no GPU device could be had; _status says why
  CompSize _compSize;              // full size of the comp, before the preview scale
  int _frameID = 0;                // counts finished renders; the viewer redraws on change
  bool renderQueued = false;
  // Every change of the document calls this; requests made before the scheduled render runs
  // collapse into that one render.
  void requestRender();
  void performRender(bool full);
  // Small pictures of each node's result, refreshed by the full render; the editor draws them in
  // the nodes. `thumbsVersion` counts refreshes.
  std::map<Uuid, Picture> nodeThumbs;
  int thumbsVersion = 0;
  void refreshThumbnails();
  void recomputeComp();
  // After a lost device or exhausted GPU memory: a new engine on the CPU driver, with the same
  // sources; the document is untouched and the next render shows it again.
  bool recoverEngine();
  // The comp's full size for a picture: the longer side capped at 4096, truncated, at least 1.
  static CompSize fullCompSize(int width, int height);

  // ---- animation (app_model_keys.cpp)
  enum class KeyStyle { linear, smooth, ease, easeIn, easeOut, hold };
  std::optional<int> evalFrameOverride;  // a render or a cache pass evaluating another frame
  std::optional<Uuid> inspectedID;       // the node shown in the inspector
  std::set<KeySel> _keySel;              // keys selected in the curve editor, on the inspected node
  // A copy of the node with its animated values in params, at `frame` (else the override, else
  // the current frame).
  Node animated(const Node& node, std::optional<int> frame = std::nullopt) const;
  Node resolved(const Node& node) const;
  double currentValue(std::size_t nodeIndex, const std::string& key) const;
  void toggleAnim(const Uuid& id, const std::string& key);
  void setKey(const Uuid& id, const std::string& key, std::int64_t frame, double value);
  void toggleKey(const Uuid& id, const std::string& key);
  void deleteKey(const Uuid& id, const std::string& key, int index);
  void moveKey(const Uuid& id, const std::string& key, int index, std::int64_t frame, double value);
  void setHandle(const Uuid& id, const std::string& key, int index, bool isOut, double inf, double slope);
  void setKeyStyle(const Uuid& id, const std::string& key, int index, KeyStyle style);
  void applyKeyStyle(KeyStyle style);
  void deleteSelectedKeys();
  // The two-way access every inspector control uses.
  struct Binding {
    std::function<double()> get;
    std::function<void(double)> set;
  };
  Binding binding(const Uuid& id, const std::string& key);

  // ---- the one notifying path (app_model_history.cpp): every store of _nodes or _edges ends
  // here, so history, render and caches hear of it in one order.
  void storedNodes();
  void storedEdges();
  void nodesChanged() { storedNodes(); }

  // ---- undo history (app_model_history.cpp)
  HistoryState history;
  std::vector<WorldSnapshot> worldUndo;  // at most 10
  std::optional<double> _trackingProgress, _magicProgress;  // a run in progress commits as one step
  GraphSnapshot snapshot() const;
  void historyChanged();
  void undo();
  void redo();
  // A gesture (a slider's drag, a point dragged in the viewer) is one undo step however long it
  // pauses: no step is taken while one is held, and its end takes the step at once.
  void beginGesture();
  void endGesture();
  void resetHistory();
  void pushWorldUndo(const std::string& label);
  void undoWorld();
  std::optional<Uuid> _selected;
  std::set<Uuid> _selection;
  std::optional<Uuid> _viewedNode;
  std::optional<Uuid> inspectorLock;  // the inspector stays on this node whatever is selected
  bool interactiveDrag = false;       // a node is being dragged in the editor
  bool renderPendingAfterDrag = false;

  // ---- graph editing (app_model_graph.cpp)
  struct QuickAddLink {
    Uuid from;
    Point at;
  };
  std::vector<Node> copiedNodes;  // the clipboard survives a change of world
  std::vector<Edge> copiedEdges;
  std::optional<QuickAddLink> quickAddLink;
  int quickAddFromPort = 0;
  bool _quickAddVisible = false;
  static constexpr double kNodeRadius = 36;  // the drawn node's radius in the editor

  Uuid addNode(const KindRef& kind, Point at);
  void addEffect(const KindRef& kind);
  void quickAdd(const KindRef& kind);
  void connect(const Uuid& from, const Uuid& to, int port, int fromPort);
  void disconnect(const Uuid& edgeID);
  std::optional<Uuid> cycleEdgePort(const Uuid& edgeID);
  void insert(const Uuid& nodeID, const Uuid& edgeID);
  void intercalate(const Uuid& nodeID, const Uuid& edgeID);
  void deleteNode(const Uuid& id);
  void deleteSelection();
  void copyNodes();
  void pasteNodes(Point offset);
  void select(std::optional<Uuid> id, bool additive = false);
  void selectAll();  // every node of the open world; the selected node stays in the inspector
  bool isSelected(const Uuid& id) const;
  void setParams(const Uuid& id, const std::map<std::string, double>& params);
  void setBypass(const Uuid& id, bool bypass);  // one undo step, like any change of the graph
  // A name of the user's own; blank, or the kind's title, gives the node back its kind's title.
  void renameNode(const Uuid& id, const std::string& name);
  // Copies of the nodes, with the wires between them, `offset` away; they become the selection.
  // The clipboard is left as it was.
  void duplicateNodes(const std::set<Uuid>& ids, Point offset);
  // The viewer's lock and the inspector's lock, set from the editor; the same node again releases.
  void toggleViewLock(const Uuid& id);
  void toggleInspectorLock(const Uuid& id);
  void setMedia(const Uuid& nodeID, const Uuid& mediaID);
  void useMedia(const Uuid& mediaID);
  bool isUpstream(const Uuid& a, const Uuid& of) const;  // a feeds `of`
  std::optional<Uuid> upstreamMedia(const Uuid& id) const;
  std::optional<Uuid> positionSource(const Uuid& id) const;
  void buildDefaultGraph();
  // The 3D keyer's remembered colours, picked at a point in fractions of the picture.
  void keyerAddSample(const Uuid& id, Point at, bool subtract);
  void keyerClear(const Uuid& id);
  Node* nodeByID(const Uuid& id);
  const Node* nodeByID(const Uuid& id) const;

  // ---- groups (app_model_groups.cpp; the algorithms in src/groups)
  std::vector<OpenGroup> _openGroups;  // groups of the open world opened in place, framed in the editor
  // Folds the nodes into one group node (with the id `keep` when given); nothing, with the reason
  // in the status, when the selection can't be folded.
  std::optional<Uuid> collapse(const std::set<Uuid>& ids, const std::string& name, std::optional<Uuid> keep,
                               const std::vector<GroupControl>& controls, const std::string& info,
                               const std::string& author);
  std::optional<Uuid> mergeSelection(const std::string& name);    // the selection, media and output left out
  std::optional<Uuid> compileWholeTree(const std::string& name);  // everything between media and output
  // Opens a group in place (its nodes back in the graph, framed), or with `permanent` dissolves it.
  // Ids by value: callers pass ids held in _nodes or _openGroups, which these replace.
  void expandGroup(Uuid id, bool permanent);
  void closeGroup(Uuid id);  // an open group folded again, with the nodes dropped in its frame
  void groupKey();       // Ctrl+G: closes the open group of the selection, else folds the selection
  void dissolveGroup();  // Ctrl+Alt+G
  void renameGroup(const Uuid& id, const std::string& name);
  void setGroupControls(const Uuid& id, const std::vector<GroupControl>& controls);
  // A node among `nodes` or inside their groups at any depth.
  static const Node* innerNode(const Uuid& id, const std::vector<Node>& nodes);

  // ---- the user node library (app_model_user_nodes.cpp; the library in src/groups)
  UserNodes userNodes;  // "Mes nodes", read from its folder when the model starts
  // A node of `kind`; a saved group's kind gives a group node with inner ids of its own.
  Node newNode(const KindRef& kind) const;
  void saveGroupToLibrary(const Uuid& id);
  std::optional<UserNodeDef> groupDef(const Uuid& id) const;  // the same, for export only: nothing registered
  void revertUserNode(const std::string& id, int n);
  void deleteUserNode(const std::string& id);  // placed nodes keep working until the program quits
  void exportUserNode(const UserNodeDef& def);
  void importOmbrikPanel();
  // Into the library, then placed at `at` in the graph, else behind the selection.
  void importOmbrik(const std::filesystem::path& url, std::optional<Point> at = std::nullopt);
  // The definitions the project's nodes use, in any world and inside groups, sorted by name.
  std::vector<UserNodeDef> usedUserDefs() const;
  // The engine's compiler for code nodes; none without an engine (they register uncompiled).
  UserNodes::Compile userKernelCompiler();

  // ---- the project file (app_model_project.cpp)
  std::optional<std::filesystem::path> _projectURL;  // none: an untitled project
  std::vector<MediaRef> missingMedia;                // refs whose file couldn't be opened at opening
  std::map<Uuid, MediaTrouble> mediaTroubles;        // why, for each of missingMedia
  std::vector<std::string> _recentKinds;
  std::vector<std::string> _folders;
  bool _confidential = false;

  ProjectFile makeFile();
  // False, with a status and the cause in `why`, when the file can't be written.
  bool write(const std::filesystem::path& url, std::string* why = nullptr);
  bool load(const std::filesystem::path& url);
  UserDefaults& defaults() { return *defaults_; }

  // ---- media (app_model_media.cpp)
  std::map<Uuid, std::shared_ptr<VideoSource>> videos;  // by media id, one per open clip
  std::set<std::string> inboxImported;                  // names already taken from the drop folder
  bool _isPlaying = false;
  // Reads one file into the media list: a clip through its first frame, a still through
  // OpenImageIO; `assign` also puts it on a media node; `id` is kept when given. False, with a
  // status naming the file and what is wrong with it (also put in `why`), when it can't be read.
  bool importURL(const std::filesystem::path& url, bool assign = false, std::optional<Uuid> id = std::nullopt,
                 std::string* why = nullptr);
  // Adds an already decoded picture; nothing, with a status, when its size is out of range.
  std::optional<Uuid> addMedia(const SourcePicture& picture, const std::string& name,
                               std::optional<std::filesystem::path> url = std::nullopt, bool assign = false,
                               std::shared_ptr<VideoSource> video = nullptr, std::optional<Uuid> id = std::nullopt);
  // Media the project names and that weren't found come back when their file reappears.
  void relinkMissingMedia();
  // The open panel for media: each file chosen (folders expanded) becomes a world; the newest opens.
  std::vector<Uuid> importPanel();
  // The clip of the first media node whose media is an open clip; null without one.
  VideoSource* activeVideo() const;
  int batchFrames(const VideoSource& video) const;
  // The idle pump: frames landed by seeks reach the engine, and the time follows the clip.
  void startTimer();
  void tick();
  void seekFrame(int n);
  void resetTime();
  // Frame-exact pictures of every clip of the graph at `frame`, for renders that walk in order.
  void loadVideoFrames(int frame);
  // The open clips that media nodes of the graph show, each once.
  std::vector<std::pair<Uuid, VideoSource*>> graphClips() const;
  // Every clip of the graph read at `frame` by `readers` into the engine.
  void feedClipFrames(ForwardReaders& readers, int frame);

  // ---- the viewer (app_model_viewer.cpp)
  enum class ViewMode { node, compare };
  struct ViewRect {
    double x = 0, y = 0, width = 0, height = 0;
  };
  bool _viewLocked = false;     // the viewer stays on _viewedNode whatever is selected
  bool _viewerFull = false;     // the viewer fills the window
  bool _fullContext = false;    // in full view the viewed node stays while others are selected
  bool viewWithoutMatte = false;
  int _viewChannel = 4;         // 1 source, 2 back, 3 alpha, 4 result
  ViewMode _viewMode = ViewMode::node;
  int _compareStyle = 0;        // 0 toggle, 1 wipe, 2 difference
  bool _showingBefore = false;
  double _wipe = 0.5;
  bool _showMatte = false;
  bool _overlaysHidden = false;
  double viewZoom = 1;
  Point viewPan;                // view points, y down
  std::optional<Uuid> displayedNodeID() const;
  // F1 to F4: a channel in full view, the same key again back; F4 twice quickly locks the result.
  void flameView(int k);
  void setViewChannel(int k);
  void setPreviewScale(double scale);
  // Zoom by `scale` (clamped to 0.1 ... 64) about a point of the view, else its centre.
  void zoomViewer(double scale, std::optional<Point> at, double viewWidth, double viewHeight);
  void fitViewer();                                        // zoom 1, no pan
  void actualPixels(double viewWidth, double viewHeight, double backingScale);  // one picture pixel a pixel
  ViewRect viewerRect(double viewWidth, double viewHeight) const;
  double viewerPixelRatio(double viewWidth, double viewHeight, double backingScale) const;
  std::string timecode() const;
  std::string viewedTitle() const;  // the title of the node on screen
  // Why the viewer has no picture now, to say it where the picture would be.
  ViewerBlank viewerBlank() const;
  // The frames at which the inspected node (else the selected one) has a key, for the time bar.
  std::set<int> keyedFrames() const;
  // Esc: out of full view, else back from a channel to the result; false when there was neither.
  bool escapeView();
  void toggleBefore();                // \ : compare with the rush, result and rush in turn
  void setCompareMode(bool on);
  void setCompareStyle(int style);    // 0 toggle, 1 wipe, 2 difference; remembered
  void setWipe(double u);             // the wipe's position, 0 ... 1 across the picture
  // A display/view of an OpenColorIO config, applied by the viewer after the world's LUT (never
  // to renders). The config is $OCIO's, read at start; `ocio` is null without one or when it
  // can't be read (the status says why). The choice is remembered in the user's settings.
  std::shared_ptr<const OcioDisplay> ocio;
  std::optional<OcioView> _ocioView;
  void setOcioConfig(const std::optional<std::filesystem::path>& config);  // app_model_ocio.cpp
  void setOcioView(const std::optional<OcioView>& view);                   // none: as it is

  // ---- what the viewer evaluates and draws (app_model_view_scope.cpp)
  // What must be evaluated to show a node: it and everything upstream, the wires between them,
  // its rush, and the feed of the channel view with that feed's rush.
  struct ViewScope {
    std::set<Uuid> need;
    std::vector<Edge> edges;
    std::optional<Uuid> plate;
    std::optional<std::pair<Edge, std::optional<Uuid>>> chan;
  };
  std::optional<ViewScope> viewScope(const Uuid& id) const;
  // The rush under a node: the first media node up along the main inputs; for a mask drawn
  // apart from any picture, the rush of the first node it limits, so its shape is seen in place.
  std::optional<Uuid> maskPlate(const Uuid& id) const;
  // The wire feeding `id` for channel 1 (the main input) or 2 (the first "Back" or "Depth" input,
  // else the main input).
  std::optional<Edge> channelSource(const Uuid& id, int channel) const;
  bool playShowsMatte(const Uuid& id) const;  // the node's matte is laid over its picture
  bool isCompare() const { return _viewMode == ViewMode::compare; }
  // The display pass's inputs: a main texture, an optional "before" texture, the mode (0 as it is,
  // 1 matte overlay, 2 wipe, 3 difference) and the viewing LUT's key (the world's, then the OCIO
  // display's), when one applies.
  struct ViewerState {
    std::shared_ptr<gpu::Texture> main, before;
    int mode = 0;
    std::optional<std::string> lut;
  };
  ViewerState rawViewerState() const;
  ViewerState viewerState() const;
  // The pictures the viewer draws: viewerState's with the world's LUT applied, once per evaluation.
  ViewerState viewerPictures() const;
  // A rendered frame as it is delivered: with the world's LUT baked in when the world asks for it
  // at render (lutRender), else as evaluated.
  std::shared_ptr<gpu::Texture> deliveredPicture(const std::shared_ptr<gpu::Texture>& rendered) const;
  std::shared_ptr<gpu::Texture> scrubTex;  // a play-cache frame shown at once while scrubbing

  // ---- playback (app_model_playback.cpp)
  std::unique_ptr<PlayState> play;
  std::set<int> _cachedFrames;          // frames in the play cache, for the transport
  std::optional<double> playEvalScale;  // evaluation scale while playing
  bool canPlay() const { return tl.workspace != Workspace::timeline || tl.current(); }
  int pbFrames() const;
  double pbFPS() const;
  std::optional<Uuid> playTarget() const;
  // The media shown untouched by `id`: media → (output through port 0, nothing on port 1); else none.
  std::optional<Uuid> passthroughMedia(const Uuid& id) const;
  void togglePlay();
  void startPlayback();
  void stopPlayback();
  void invalidatePlayCache();
  void setupCacheSize();
  void kickRender();
  void playTick();
  int clockFrame() const;
  bool startNativePlayback();
  void nativeTick();
  void rewindNative(VideoSource& video, int frame);  // the player seeks, then plays from there
  static constexpr int kPlayMaxSideDefault = 2048;
  int playMaxSide() const;  // the long side of cached frames; 0 or less: no limit
  void setPlayMaxSide(int side);
  // Counts a frame shown; once a second the rate goes to the status line, the label followed by
  // " (cached/total)" when `cached` is given.
  void countFrame(const char* label, double fps, std::optional<std::pair<int, int>> cached = std::nullopt);
  // What the viewer draws: the play display while playing, else the displayed node's result.
  std::shared_ptr<gpu::Texture> viewerTexture() const;

  // ---- masks and shapes (app_model_masks.cpp); the logic lives in src/tracking
  RotoState roto;
  bool rendering = false;  // a render of frames to files is running
  MaskKey key(const Node& node) const;  // the placement in the node's parameters
  // A mask node at a frame (the override, else the current one): animated, its placement in
  // `trackNow`, its shape moved from the placement it was drawn in.
  Node resolvedMask(const Node& node, std::optional<int> frame = std::nullopt) const;
  // Every mask of a mask node resolved at the frame, for the engine's layers.
  std::vector<GMask> maskLayersAt(const Node& node) const;
  // A point of the viewer (normalised comp) into the space the node's shape is stored in.
  Point toBase(const Node& node, Point at) const;
  void selectMask(const Uuid& nodeID, int index);
  int newMask(const Uuid& nodeID);
  void deleteMask(const Uuid& nodeID, int index);
  void setMaskParam(const Uuid& nodeID, int index, const std::string& key, double value);
  void setMaskBlend(const Uuid& nodeID, int index, int blend);
  // The placement of the active mask set by hand: every drag of a mask ends here.
  void setMaskParams(const Uuid& nodeID, const std::map<std::string, double>& values);
  void toggleMaskIsolate();
  std::optional<int> shapeAddPoint(const Uuid& nodeID, Point at);
  void shapeInsertPoint(const Uuid& nodeID, int segment, double t);
  void shapeMovePoint(const Uuid& nodeID, int index, Point to);
  void shapeMovePoints(const Uuid& nodeID, const std::map<int, Point>& starts, double dx, double dy);
  void shapeSetTangent(const Uuid& nodeID, int index, Point out, bool isOut, bool mirror);
  void shapeToggleSmooth(const Uuid& nodeID, int index);
  void shapeDeletePoint(const Uuid& nodeID, int index);
  void shapeClose(const Uuid& nodeID);
  void shapeClear(const Uuid& nodeID);
  void startEllipse(const Uuid& nodeID, Point at);
  // A tracked mask made still where it stands at the current frame: its placement and, through
  // the frame's homography, its shape are baked in, and the tracking data go.
  void clearTrack(const Uuid& nodeID);
  // The tool of the viewer; the ellipse tool turns an inspected empty mask into an ellipse.
  void setRotoTool(RotoTool tool);
  // I: guides hidden or shown; twice quickly: one mask alone, or the viewer on the selection.
  void iKey();
  // The mask node whose shapes the viewer edits: the displayed node when it is a mask, else the
  // selected one.
  std::optional<Uuid> rotoNode() const;

  // ---- mask tracking (app_model_tracking.cpp: runs and corrections; app_model_track_run.cpp: the
  // run under way). The fitting and the worker live in src/tracking.
  TrackingState tracking;
  // Makes the mask follow the plate from the current frame, one way; the tracker runs on a thread
  // and the track fills in while it goes. One step of undo for the whole run.
  void trackMask(const Uuid& nodeID, bool forward);
  void trackMaskBoth(const Uuid& nodeID);  // forward, then back from the same frame
  void stopTracking();                     // Esc: the run ends where it is, what it found stays
  // Hand corrections over the raw track, in percent of the picture.
  void addTrackOffset(std::size_t nodeIndex, double dx, double dy);
  void offsetZeroHere(const Uuid& nodeID);
  // Placements set by hand before tracking, which a track between them passes through.
  void pinHere(const Uuid& nodeID);
  void removePin(const Uuid& nodeID, int frame);
  void clearPins(const Uuid& nodeID);
  // Tracks from each pin to its neighbours, both ways, and fuses the runs (app_model_track_pins.cpp).
  void trackWithPins(const Uuid& nodeID);
  void setTrackEngine(TrackEngine engine);  // remembered for the next start
  void setTrackCorrect(bool on);
  Workers& workers();  // the worker processes, started on first use

  // ---- AI jobs (app_model_ai.cpp: the gate, the line and the job on its thread; the tools in
  // app_model_ai_mattes.cpp and app_model_ai_frames.cpp). The rules live in src/ai, the work in
  // the Python worker; a result is a file in the node's folder, found by name at each frame.
  AiState ai;
  std::function<void()> playTaskSound;  // the shell's short sound at the end of a long task
  std::filesystem::path magicDir(const Uuid& id) const;  // data/Cache/<UUID>
  std::optional<double> aiProgress(const Uuid& id) const;  // the running job's, for this node's panel
  std::optional<double> aiElapsed() const;  // seconds since the running job started
  void setPrompt(const Uuid& id, const std::string& text);  // what an Objet IA searches
  // The gate of every tool: while a tracker or a job runs, `run` waits in the line under `key`
  // (once however often it is asked) and this gives true.
  bool aiWaits(const std::string& key, const std::string& label, std::function<void()> run);
  void enqueueAI(const std::string& key, const std::string& label, std::function<void()> run);
  void drainAIQueue();  // the next waiting job, when nothing runs
  void cancelAI();
  // One job on the worker, on a thread of its own: `onSeg` and `onStatus` on the main thread,
  // `done` there too with the error text or nothing. The caller sets _magicProgress and the
  // status first; `done` clears them.
  using AiDone = std::function<void(const std::optional<std::string>&)>;
  void magicJob(nlohmann::json job, std::function<void(int)> onSeg, std::function<void(const std::string&)> onStatus,
                AiDone done);
  VideoSource* upstreamVideo(const Uuid& id) const;  // the clip of the media feeding a node
  std::vector<std::filesystem::path> mediaPaths() const;  // the project's media files, kept from cache removals
  // A whole-shot job: the node's clip and folder (none, after `missing` in the status, without a
  // clip), then the job run with the playback stopped and the bar following the frames written.
  struct ShotJob {
    VideoSource* video = nullptr;
    std::filesystem::path dir;
    int frames = 1;
  };
  std::optional<ShotJob> shotFor(const Uuid& id, const char* missing);
  void runWholeShot(nlohmann::json job, int frames, const char* preparing, AiDone done);
  // The frame's result file on a resolved copy of an AI node, when it exists.
  void resolveAIResult(Node& r, int frame) const;
  void resolveRetime(Node& r, int frame) const;  // Vitesse: the source time, and the flow movie when it matches
  // Body Matte, Hair Matte, Masque au clic, Objet IA (app_model_ai_mattes.cpp).
  void bodyFrame(const Uuid& id, bool quiet = false);
  void bodyVideo(const Uuid& id);
  void bodyAuto(const Uuid& id);  // when wired: what is missing is computed
  void bodyOnDemand();            // after a seek or a stop: the shown frame, if it lacks its result
  void magicPreview(const Uuid& id);
  void magicPropagate(const Uuid& id);
  void magicAddPoint(const Uuid& id, Point at, bool positive);
  void magicRemovePoint(const Uuid& id, int index);
  void magicRefresh(const Uuid& id);
  void magicClear(const Uuid& id);
  void objectFind(const Uuid& id);
  void objectPropagate(const Uuid& id);
  void objectRemoveBox(const Uuid& id, int index);
  std::optional<ObjectBoxes> objectBoxes(const Uuid& id) const;
  // Denoise, Keyer IA, Vitesse (app_model_ai_frames.cpp).
  void denoiseFrame(const Uuid& id);
  void denoiseVideo(const Uuid& id);
  void greenAIFrame(const Uuid& id);
  void greenAIVideo(const Uuid& id);
  void greenKeyDetect(const Uuid& id);
  void retimeCompute(const Uuid& id);
  std::vector<double> retimeMap(const Node& node) const;
  std::string retimeSig(const Node& node) const;
  bool retimeFlowReady(const Node& node) const;

  // ---- delivery: renders of frames to files, the queue, the Relais checkpoint
  // (app_model_delivery.cpp, app_model_render_queue.cpp, app_model_relais.cpp); naming and the
  // queue's rules live in src/editorial.
  RenderState delivery;
  // The world's graph at full size, frame by frame, into one movie or a numbered sequence in the
  // output node's folder (asked for when it has none); one frame per turn of the main loop.
  void renderSequence(const Uuid& nodeID);
  bool chooseRenderFolder(const Uuid& nodeID);  // false: cancelled
  void setRenderFolder(const Uuid& nodeID, const std::filesystem::path& url);
  void exportPanel();  // Ctrl+E: the current frame at full size, to TIFF or PNG
  void enqueueRender(const std::vector<Uuid>& batchIDs);
  void runQueue();
  void stopQueue();
  void removeRenderJob(const Uuid& jobID);  // "Retirer de la file": a job that isn't running
  void stopAllRenders();
  void clearFinishedRenders();
  std::filesystem::path queueFolder();  // the "renderQueueFolder" default, else data/Renders
  void chooseQueueFolder();
  void muxCache(const Uuid& nodeID);
  void muxClear(const Uuid& nodeID);
  int muxCachedCount(const Uuid& nodeID) const;
  std::filesystem::path muxFolder(const Uuid& nodeID) const;  // data/Cache/<UUID>
  std::optional<Uuid> outputNode() const;  // the open world's first output node
  // A folder of matte frames (%05d.png) into a ProRes 422 HQ movie; the reason when it can't.
  static std::optional<std::string> writeMatteMovie(const std::filesystem::path& dir, int frames, double fps, int width,
                                                    int height, const std::filesystem::path& to);

  // ---- timelines (app_model_timeline.cpp: timelines and their edits; app_model_timeline_layers.cpp:
  // layers and the worlds behind them; app_model_timeline_render.cpp: frames of a timeline). The
  // edits themselves live in src/editorial.
  TimelineState tl;
  // The timeline shown: the current one while the timeline workspace is in front of the worlds.
  const Timeline* shownTimeline() const;
  void newTimeline();
  std::optional<Uuid> emptySequence();
  void openTimeline(const Uuid& id);
  void backToBatch();
  void renameTimeline(const Uuid& id, const std::string& to);
  void deleteTimeline(const Uuid& id);
  // Duration: a fixed one, or none for the end of the last layer.
  void applyTimelineSettings(const Uuid& id, const std::string& name, int width, int height, double fps,
                             std::optional<int> duration, std::optional<std::vector<double>> background);
  void showFilms();
  void addLayer(const LayerSource& source, int at);
  void updateLayer(const Uuid& id, const std::function<void(TLayer&)>& mutate);
  void moveLayer(const Uuid& id, bool up);
  void deleteLayer(const Uuid& id);
  void selectLayer(const Uuid& id, bool add);
  void selectAllLayers();
  void bladeAtPlayhead();
  void deleteSelectedLayers(bool ripple);
  void trimToPlayhead(bool start);
  void moveSelectedLayers(bool up);
  void duplicateSelectedLayers();
  void toggleSelectedLayersEnabled();
  void jumpEditPoint(bool next);
  void tlCheckpoint();
  bool tlUndoStep();
  bool tlRedoStep();
  bool timelineKey(const TimelineKeyPress& press);  // true when the key was the timeline's
  struct SourceLength {
    int length = 100;
    std::string name;
  };
  // How long a new layer of the source is and what it is called.
  SourceLength sourceLength(const LayerSource& source) const;
  // Layers and their worlds (app_model_timeline_layers.cpp).
  void layerToBatch(const Uuid& id);
  void openLayerBatch(const Uuid& id);
  void focusLayerBatch(const Uuid& id, std::optional<Uuid> select);
  std::vector<Node> layerEffects(const TLayer& layer) const;  // the world's chain, upstream first
  void addLayerEffect(const KindRef& kind);
  bool returnToFilm();
  // Keys "batch:<id>", "media:<id>", "file:<path>", "dir:<path>", and files, as layers from `at`.
  void dropOnTimeline(const std::vector<std::string>& keys, const std::vector<std::filesystem::path>& files, int at);
  std::optional<Uuid> worldFor(const Uuid& mediaID);
  void createSequence(const std::vector<Uuid>& worldIDs);
  void appendToSequence(const std::vector<Uuid>& worldIDs, const Uuid& sequence);
  // Timelines to and from OpenTimelineIO files (app_model_timeline_exchange.cpp): false, with the
  // reason in the status, when the file can't be written or read; nothing changes then.
  bool exportTimelineOTIO(const Uuid& id, const std::filesystem::path& to);
  bool importTimelineOTIO(const std::filesystem::path& from);
  void exportTimelineOTIOPanel();
  void importTimelineOTIOPanel();
  // The film of a timeline at its own rate, every frame in order, in ProRes 422 HQ with the sound
  // of the film it was cut from (app_model_timeline_export.cpp). The panel asks where; with a
  // path, false when it can't start (the status says why).
  void exportTimelineMovie(const Uuid& id);
  bool exportTimelineMovie(const Uuid& id, const std::filesystem::path& to);
  // Frames of a timeline (app_model_timeline_render.cpp): jobs made here, rendered one a turn of
  // the main loop into the play cache; the latest request wins.
  std::optional<int> scrubPending;
  std::shared_ptr<gpu::Texture> timelineTex;  // the frame shown in the timeline workspace
  std::optional<TimelineJob> timelineJob(int frame);
  void timelineScrub(int frame);
  void startScrubJob();
  void prefetchTimeline();
  TimelineReader& timelineReader();

  // ---- the drop folder (app_model_inbox.cpp)
  std::filesystem::path inboxDir();
  void scanInbox();
  void startInbox();  // a scan now and every 3 s
  void importFromFinder(const std::vector<std::filesystem::path>& urls);

  // ---- worlds (app_model_worlds.cpp: in and out of the open stores; app_model_world_map.cpp:
  // creation, folders and deletion). The rules live in world_list.h.
  std::vector<WorldGroup> _worldGroups;
  std::optional<Uuid> _openGroup;   // the folder the map shows; none: the top level
  bool _worldView = false;          // the world map is in front
  std::set<Uuid> _worldSelection;   // worlds and folders selected on the map
  std::optional<Uuid> _renameGroupRequest;  // a folder whose name the map opens for typing
  const Batch* currentBatch() const;
  // Writes the open world's graph back into its Batch: anything that copies, stores or exports
  // worlds calls this first.
  void saveCurrentBatch();
  // Makes a world current; refused while a render runs. Placeholder worlds not open go.
  void openBatch(const Uuid& id);
  void enterWorld(const Uuid& id);  // from the map, which then steps back
  void showWorlds();
  void newBatch(std::optional<std::string> name = std::nullopt, std::optional<Uuid> mediaID = std::nullopt);
  std::optional<Uuid> duplicateBatch(const Uuid& id);  // the copy isn't opened
  void renameBatch(const Uuid& id, const std::string& to);
  void deleteBatch(const Uuid& id);
  Uuid makeWorld(const Uuid& mediaID, const std::string& name, std::optional<Point> at = std::nullopt,
                 std::optional<FilmShot> film = std::nullopt, std::optional<std::string> lut = std::nullopt);
  std::optional<Uuid> createWorld(const std::filesystem::path& url, std::optional<Point> at = std::nullopt,
                                  std::optional<FilmShot> film = std::nullopt,
                                  std::optional<std::string> name = std::nullopt,
                                  std::optional<std::string> lut = std::nullopt);
  std::vector<Uuid> importAsWorlds(const std::vector<std::filesystem::path>& urls, std::optional<Point> at = std::nullopt);
  std::optional<Uuid> worldMediaID(const Batch& batch) const;
  const MediaItem* worldMedia(const Batch& batch) const;
  // The live graph for the open world, the stored one for any other. Whatever reads or edits a
  // world that may be closed goes through this.
  std::optional<GraphSnapshot> worldGraph(const Uuid& id) const;
  std::vector<const Batch*> worldsByRecency() const;
  std::vector<const Batch*> visibleBatches() const;
  Point worldPosition(const Batch& batch) const;
  Point groupPosition(const WorldGroup& group) const;
  Point nextWorldSlot(std::optional<Uuid> group) const;
  std::optional<Uuid> groupWorlds(const std::vector<Uuid>& ids, const std::string& name,
                                  std::optional<Point> at = std::nullopt);
  void moveWorlds(const std::vector<Uuid>& ids, std::optional<Uuid> group);
  void ungroup(const Uuid& id);
  void renameWorldGroup(const Uuid& id, const std::string& to);
  void setGroupPos(const Uuid& id, Point p);
  // Worlds and folders, with the shots of their films; asks first when `confirm`. Undone by undoWorld.
  void deleteWorlds(const std::vector<Uuid>& ids, bool confirm);
  void toggleShots(const Uuid& id);  // a film world's shots folded under it on the map, or not
  // "" for none, a LUT file's path, or "auto:" and a key of the LUT library.
  void setWorldLUT(const Uuid& id, const std::string& lut);
  void toggleWorldLUTRender(const Uuid& id);
  // A .cube file as the world's LUT: read first, and refused with its reason (the world keeps
  // its LUT) when it isn't a table. The panel form asks for the file.
  bool setWorldLUTFile(const Uuid& id, const std::filesystem::path& file);
  void chooseWorldLUTFile(const Uuid& id);

  // ---- world packs (app_model_world_pack.cpp; the plan and the files in world_pack.h)
  // Asks where, then packs. Neither the world nor the project changes by packing.
  void packWorld(const Uuid& id);
  // Copies on a background thread from a plan made now; `done` gets the outcome on the main thread.
  void packWorld(const Uuid& id, const std::filesystem::path& to, std::function<void(bool)> done = nullptr);
  bool packing() const { return !packCopies_.empty(); }
  // A pack folder back as a new world, not opened; nothing, with a status, when it can't be read.
  std::optional<Uuid> unpackWorld(const std::filesystem::path& url);
  std::optional<Uuid> unpackWorldPanel();  // asks for the pack's folder
  // Wall time as the model's scheduler sees it: tests that hold their clock hold dates too.
  std::chrono::system_clock::time_point wallNow() const;

  // ---- the life of a project (app_model_life.cpp)
  std::filesystem::path projectsDir();  // data/Projets, created when missing
  static constexpr const char* kAutoFileName = "Sans titre (auto).tarvom";
  void newProject();  // the project left is saved first; a blank world, nothing to undo
  void saveProject();
  void saveProjectAs();
  void openProjectPanel();
  // The save of quitting: the project over itself, an untitled one to the automatic file.
  // Nothing when saved (or with nothing to save), else the cause.
  std::optional<std::string> autosave();
  bool openLastProject();
  // Chooses the language and offers to restart in it: the project is saved first.
  void switchLanguage(AppLanguage lang);
  AppLanguage chosenLanguage() const;  // the one chosen, which the next start speaks
  void relaunchNow();

private:
  void startBlankWorld(bool placeholder);
  void startExampleWorld();
  void placeRenoise(const Uuid& id);
  static bool isMultiWire(const std::string& kind, int port);
  void commitHistory();
  void apply(const SharedGraph& state);
  void step(std::vector<SharedGraph>& from, std::vector<SharedGraph>& to);
  // Work for later that does nothing if the model is gone by then.
  Scheduler::Token later(double seconds, std::function<void()> work);
  Scheduler::Token repeat(double seconds, std::function<void()> work);  // until cancelled
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::shared_ptr<Scheduler> scheduler_;
  // The wall time when the scheduler's clock read clockStart_ (initialised after scheduler_).
  std::chrono::system_clock::time_point wallStart_ = std::chrono::system_clock::now();
  double clockStart_ = scheduler_->now();
  std::unique_ptr<UserDefaults> defaults_;
  std::shared_ptr<Dialogs> dialogs_;
  std::filesystem::path dataDir_;
  std::function<void()> relaunch_;
  bool installed_ = false;
  std::optional<Scheduler::Token> pumpTimer_;
  std::optional<Scheduler::Token> fullRenderTimer_;  // the full render after a lean one
  double lastDragRender_ = -1e9;
  double lastF4_ = -1e9;
  std::optional<Scheduler::Token> inboxTimer_;
  double lastIKey_ = -1e9;
  struct FrameRun;
  std::shared_ptr<FrameRun> frameRun_;
  // The loop shared by renders and the Relais cache: readers from the first frame, full size,
  // one frame evaluated and handed to `run.write` per turn, `run.close` at the end.
  bool startFrameRun(std::shared_ptr<FrameRun> run);
  void frameStep(int i);
  void finishFrameRun(std::optional<std::string> error);
  void editShape(const Uuid& nodeID, const std::function<void(Node&)>& edit);
  Node* trackTarget(const Uuid& nodeID);  // live, or in its world when another one is open
  void startTrackRun(std::shared_ptr<MaskTrackRun> run, const Uuid& nodeID, nlohmann::json job);
  void pushTrack(MaskTrackRun& run, const Uuid& nodeID, bool last);
  void finishTrackRun(std::shared_ptr<MaskTrackRun> run, const Uuid& nodeID, const JobResult& result);
  void nextPinRun();
  void pinRunEnded(bool ok);
  void endPinPlan(const std::string& status);  // a plan dropped: the node as it was before it
  void endTracking();  // stops the tracker and waits for its thread: nothing outlives the model
  void tlChanged(const std::string& message);  // the common end of a timeline edit
  struct TimelineExport;
  std::shared_ptr<TimelineExport> tlExport_;
  void timelineExportStep(int i);
  void finishTimelineExport(std::optional<std::string> error);
  std::thread aiThread_;
  std::optional<Scheduler::Token> bodyDemand_;  // the one on-demand computation waiting
  void endAI();  // cancels the job and waits for its thread
  std::unique_ptr<Workers> workers_;
  // `all` stored as the node's masks with mask `index` live in its fields; no point selected.
  void activateMask(const Uuid& nodeID, const std::vector<GMask>& all, int index);
  std::unique_ptr<ForwardReaders> renderReaders_;
  std::unique_ptr<TimelineReader> tlReader_;
  std::map<int, std::unique_ptr<PackCopy>> packCopies_;  // copies under way, by number
  int packCount_ = 0;
};

}  // namespace ombrik
