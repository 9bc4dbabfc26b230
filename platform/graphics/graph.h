#pragma once

#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/device.h"
#include "platform/graphics/export.h"

#include <functional>
#include <memory>
#include <vector>

// The render graph: nodes joined by edges (source, target, name). An unnamed edge, or one named
// "input", is an ordering dependency; a named edge is an input of its target, which looks it up
// by that name (a name may repeat, as "world" does). A render target is a chain of states: each
// pass reads the current state of the target and writes a new one. DrawSystem::draw(target) runs,
// once each and sources first, exactly the nodes the target's last state depends on.
//
// New kinds of passes (glow, x-ray, shadows, ...) derive from Node and override onExecute; they
// reach the renderer through the PassContext they are given, so the core needs no change.
namespace voGR {

class DrawItem;
class DrawSystem;
class Graph;
class Node;
class PassContext;
class RenderTargetNode;
class Shader;
class World;

// The debug channel of the graphics library (graph dumps, refused draws, bad input).
inline constexpr int DebugGraphics = 31;

// An edge of the graph, owned by the graph. Its address is the handle GraphEditor answers.
struct Edge {
  Node* source = nullptr;
  Node* target = nullptr;
  ruString::CString name;
  // True for the edges that only order passes: unnamed or named "input".
  bool isOrdering() const noexcept { return name.empty() || name == "input"; }
};

// A node of the graph. Names are labels (two surfaces sharing a graph may use the same name), not
// keys. Once added to a graph (GraphEditor::addNode) the graph owns the node.
class VO_GR_API Node {
public:
  Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  virtual ~Node();

  void setName(const ruString::CString& name) { name_ = name; }
  const ruString::CString& getName() const noexcept { return name_; }
  // The kind of node, for printOutGraph ("RenderNode", "CameraNode", ...).
  const char* getKindName() const { return onKindName(); }
  // The graph owning the node; null before addNode.
  Graph* getGraph() const noexcept { return graph_; }

  // The source of the first edge named `name` into this node; null when there is none.
  Node* getInput(const ruString::CString& name) const;
  // The sources of every edge named `name` into this node, in the order the edges were made.
  std::vector<Node*> getInputs(const ruString::CString& name) const;
  // The target of the first edge named `name` out of this node; null when there is none.
  Node* getOutput(const ruString::CString& name) const;
  const std::vector<Edge*>& incomingEdges() const noexcept { return in_; }
  const std::vector<Edge*>& outgoingEdges() const noexcept { return out_; }

  // How many times a draw has executed this node (for tests and diagnostics).
  int getExecutionCount() const noexcept { return executions_; }

  // Runs the node's work for one draw. Called by the executor only, once a draw, after every
  // node this one depends on.
  void execute(PassContext& context);

  // Appends the nodes besides the graph edges that this one depends on (a render-target state
  // depends on the state before it).
  void getImplicitDependencies(std::vector<Node*>& out) const { onImplicitDependencies(out); }

private:
  friend class Graph;
  friend class GraphEditor;
  // Must only append; none by default.
  virtual void onImplicitDependencies(std::vector<Node*>& out) const;
  // The work of one draw: a pass draws into the state it feeds; nodes that only hold data do
  // nothing (the default).
  virtual void onExecute(PassContext& context);
  virtual const char* onKindName() const;

  ruString::CString name_;
  Graph* graph_ = nullptr;
  std::vector<Edge*> in_;
  std::vector<Edge*> out_;
  int executions_ = 0;
};

// A node that holds data and may be one state of a chain (a render target is one). Every state of
// a chain shares the chain's data; appendState and getLastState work from any state.
class VO_GR_API DataNode : public Node {
public:
  DataNode();
  ~DataNode() override;

  // Appends `state` at the end of this node's chain (wherever this node is in it). `state` must
  // not be in a chain of more than itself; false (nothing changes) otherwise, or when null.
  bool appendState(DataNode* state);
  DataNode* getLastState() const;
  DataNode* getFirstState() const;
  // The state before this one in its chain; null for the first.
  DataNode* getPreviousState() const;
  // The states of the chain, first to last.
  const std::vector<DataNode*>& getChain() const;

protected:
  struct Chain;
  Chain& chain() const { return *chain_; }

private:
  void onImplicitDependencies(std::vector<Node*>& out) const override;
  const char* onKindName() const override;
  std::shared_ptr<Chain> chain_;
};

// A render target state. The frame-buffer key is chain-wide: setting it on any state redirects
// every pass of the target. Without a key the target is the host's window (the draw system's
// default frame buffer), which an off-screen draw system does not have.
class VO_GR_API RenderTargetNode : public DataNode {
public:
  RenderTargetNode();
  ~RenderTargetNode() override;
  ruRen::FBOKey getFBO() const;
  void setFBO(const ruRen::FBOKey& key);

private:
  const char* onKindName() const override;
};

// Holds the first state of a render target for a surface. Reference counted.
class VO_GR_API DataNodeStateInfo : public ru::ReferenceCount {
public:
  explicit DataNodeStateInfo(DataNode* first) : first_(first) {}
  DataNode* firstState() const noexcept { return first_; }

private:
  DataNode* first_;
};

// A camera. With a "renCamera" input (an UpdateClipPlanesNode) it computes its camera from that
// input whenever asked, so it is current before the first draw; otherwise it answers the camera
// last set.
class VO_GR_API CameraNode : public Node {
public:
  CameraNode();
  ~CameraNode() override;
  void setCamera(const ruGeom::Camera& camera) { camera_ = camera; }
  ruGeom::Camera getCamera() const;

private:
  void onExecute(PassContext& context) override;
  const char* onKindName() const override;
  ruGeom::Camera camera_;
};

// Fits the near and far planes of its "viewCamera" input's camera to the bounds of its "world"
// inputs (the items in front of the eye), near kept at a small positive distance. Answers the
// view camera unchanged when the worlds are empty or wholly behind the eye.
class VO_GR_API UpdateClipPlanesNode : public Node {
public:
  UpdateClipPlanesNode();
  ~UpdateClipPlanesNode() override;
  ruGeom::Camera computeCamera() const;

private:
  const char* onKindName() const override;
};

// Clears the state it feeds ("target" output) to a colour, and its depth to the far plane.
class VO_GR_API ClearNode : public Node {
public:
  ClearNode();
  ~ClearNode() override;
  void setColor(float r, float g, float b, float a) noexcept {
    color_[0] = r, color_[1] = g, color_[2] = b, color_[3] = a;
  }
  const float* getColor() const noexcept { return color_; }

private:
  void onExecute(PassContext& context) override;
  const char* onKindName() const override;
  float color_[4] = {0, 0, 0, 0};
};

// Draws the drawable items of its "world" inputs with its "camera" input into the state it feeds
// ("target" output), depth-tested, with its rasterizer state; opaque items first, then the
// transparent ones blended, farthest first.
class VO_GR_API RenderNode : public Node {
public:
  RenderNode();
  ~RenderNode() override;
  ruRen::RasterizerState& getRasterizerState() noexcept { return rasterizer_; }
  const ruRen::RasterizerState& getRasterizerState() const noexcept { return rasterizer_; }
  // Items for which `reject` answers true are left out of this pass; an empty function keeps all.
  void setRejectItemFunc(std::function<bool(DrawItem&)> reject) { reject_ = std::move(reject); }
  const std::function<bool(DrawItem&)>& getRejectItemFunc() const noexcept { return reject_; }

private:
  void onExecute(PassContext& context) override;
  const char* onKindName() const override;
  ruRen::RasterizerState rasterizer_;
  std::function<bool(DrawItem&)> reject_;
};

// Owns the nodes and edges. Shared by every surface of a draw system.
class VO_GR_API Graph {
public:
  Graph();
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;
  ~Graph();

  const std::vector<Node*>& getNodes() const noexcept { return nodes_; }
  std::vector<const Edge*> getEdges() const;
  bool contains(const Node* node) const noexcept;

  // The nodes that `target` depends on (itself included), sources first, each once: the order a
  // draw runs them in. False, with a message on the debug channel and `order` empty, when the
  // dependencies run in a cycle or `target` is not in this graph.
  bool dependencyOrder(Node* target, std::vector<Node*>& order) const;

private:
  friend class GraphEditor;
  std::vector<Node*> nodes_;
  std::vector<std::unique_ptr<Edge>> edges_;
};

// Edits a graph. The graph owns what is added; handles stay valid until deleted.
class VO_GR_API GraphEditor {
public:
  explicit GraphEditor(Graph* graph) noexcept : graph_(graph) {}

  // Adds a node (the graph takes ownership). False for null, or a node already in a graph.
  bool addNode(Node* node);
  // Removes a node with its edges and deletes it (leaving its state chain). False when not ours.
  bool deleteNode(Node* node);
  // An ordering edge from `source` to `target`; null when either is null or not in the graph.
  Edge* createEdge(Node* source, Node* target);
  // A named edge: an input of `target` looked up by `name`.
  Edge* createEdge(Node* source, Node* target, const ruString::CString& name);
  // Removes an edge made by createEdge. False (nothing changes) for an unknown handle.
  bool deleteEdge(Edge* edge);
  // Removes the first edge (source, target, name). False when there is none.
  bool deleteEdge(Node* source, Node* target, const ruString::CString& name);

private:
  Graph* graph_;
};

// Prints every node (name, kind) and edge (source, target, name) on the DebugGraphics channel;
// silent unless that channel is enabled.
VO_GR_API void printOutGraph(Graph* graph);

}  // namespace voGR
