// The render graph and its executor on a real off-screen draw system.

#include "glscene.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace voGR;
using voGR::test::DebugCapture;
using voGR::test::GLScene;

namespace {

int position(const std::vector<Node*>& trace, const Node* node) {
  auto it = std::find(trace.begin(), trace.end(), node);
  return it == trace.end() ? -1 : static_cast<int>(it - trace.begin());
}

// A second target in the same graph: its own frame buffer, a clear and nothing else.
struct Thumbnail {
  RenderTargetNode* target;
  ClearNode* clear;
  RenderTargetNode* afterClear;
  explicit Thumbnail(GLScene& scene) {
    GraphEditor editor(scene.system->getGraph());
    target = new RenderTargetNode();
    target->setName("Thumbnail_FBO");
    target->setFBO(scene.system->createFBOKey(ruRen::FBOInfo(64, 64, true, false, false)));
    editor.addNode(target);
    afterClear = new RenderTargetNode();
    afterClear->setName(target->getName());
    editor.addNode(afterClear);
    target->appendState(afterClear);
    clear = new ClearNode();
    editor.addNode(clear);
    editor.createEdge(target, clear, "input");
    editor.createEdge(clear, afterClear, "target");
  }
};

}  // namespace

TEST(GraphGLTest, DrawRunsEveryNodeTheTargetDependsOnOnceInDependencyOrder) {
  GLScene scene;
  Thumbnail thumbnail(scene);
  ASSERT_TRUE(scene.system->draw(scene.target));
  const std::vector<Node*>& trace = scene.system->getExecutionTrace();
  const std::vector<DataNode*>& chain = scene.target->getChain();
  ASSERT_EQ(chain.size(), 3u);
  // first state, clear, after clear, camera, world, render, after render: seven nodes.
  EXPECT_EQ(trace.size(), 7u);
  for (const Node* node : {static_cast<const Node*>(chain[0]), static_cast<const Node*>(scene.clear),
                           static_cast<const Node*>(chain[1]), static_cast<const Node*>(scene.cameraNode),
                           static_cast<const Node*>(scene.worldNode), static_cast<const Node*>(scene.render),
                           static_cast<const Node*>(chain[2])}) {
    EXPECT_EQ(node->getExecutionCount(), 1) << node->getName().c_str();
    EXPECT_GE(position(trace, node), 0) << node->getName().c_str();
  }
  // Every edge's source runs before its target.
  for (const Edge* edge : scene.system->getGraph()->getEdges()) {
    const int source = position(trace, edge->source), target = position(trace, edge->target);
    if (target < 0) continue;
    EXPECT_LT(source, target) << edge->source->getName().c_str() << " -> " << edge->target->getName().c_str();
  }
  EXPECT_LT(position(trace, chain[1]), position(trace, scene.render));
}

TEST(GraphGLTest, ABranchTheTargetDoesNotReachNeverRuns) {
  GLScene scene;
  Thumbnail thumbnail(scene);
  ASSERT_TRUE(scene.system->draw(scene.target));
  ASSERT_TRUE(scene.system->draw(scene.target));
  EXPECT_EQ(thumbnail.clear->getExecutionCount(), 0);
  EXPECT_EQ(thumbnail.target->getExecutionCount(), 0);
  EXPECT_EQ(scene.render->getExecutionCount(), 2);

  ASSERT_TRUE(scene.system->draw(thumbnail.target));
  EXPECT_EQ(thumbnail.clear->getExecutionCount(), 1);
  EXPECT_EQ(scene.render->getExecutionCount(), 2);
  EXPECT_EQ(scene.clear->getExecutionCount(), 2);
  EXPECT_EQ(scene.system->getExecutionTrace().size(), 3u);
}

TEST(GraphGLTest, AppendStateAndGetLastStateWorkFromAnyStateOfTheChain) {
  GLScene scene;
  const std::vector<DataNode*> chain = scene.target->getChain();
  ASSERT_EQ(chain.size(), 3u);
  for (DataNode* state : chain) {
    EXPECT_EQ(state->getLastState(), chain[2]);
    EXPECT_EQ(state->getFirstState(), chain[0]);
  }
  auto* extra = new RenderTargetNode();
  GraphEditor(scene.system->getGraph()).addNode(extra);
  // Appending through the first state still appends at the end.
  ASSERT_TRUE(chain[0]->appendState(extra));
  for (DataNode* state : chain) EXPECT_EQ(state->getLastState(), extra);
  EXPECT_EQ(extra->getPreviousState(), chain[2]);
  // A state already in a chain cannot start another.
  auto* other = new RenderTargetNode();
  GraphEditor(scene.system->getGraph()).addNode(other);
  EXPECT_FALSE(other->appendState(chain[1]));
  EXPECT_FALSE(chain[1]->appendState(extra));
  // The frame-buffer key is the chain's.
  EXPECT_TRUE(extra->getFBO() == scene.key);
  ruRen::FBOKey replacement = scene.system->createFBOKey(ruRen::FBOInfo(32, 32, true, false, false));
  static_cast<RenderTargetNode*>(chain[1])->setFBO(replacement);
  EXPECT_TRUE(scene.target->getFBO() == replacement);
}

TEST(GraphGLTest, NamedEdgesAreInputsByNameAndUnnamedOnesOnlyOrder) {
  GLScene scene;
  GraphEditor editor(scene.system->getGraph());
  auto* second = scene.database->getWorldNode(scene.database->addWorld(new ListWorld(true), {}));
  Edge* named = editor.createEdge(second, scene.render, "world");
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(named->name, "world");
  EXPECT_EQ(scene.render->getInput("camera"), scene.cameraNode);
  const std::vector<Node*> worlds = scene.render->getInputs("world");
  ASSERT_EQ(worlds.size(), 2u);
  EXPECT_EQ(worlds[0], scene.worldNode);
  EXPECT_EQ(worlds[1], second);
  // The unnamed edge from the previous state is no named input.
  Edge* ordering = nullptr;
  for (Edge* edge : scene.render->incomingEdges()) {
    if (edge->name.empty()) ordering = edge;
  }
  ASSERT_NE(ordering, nullptr);
  EXPECT_TRUE(ordering->isOrdering());
  EXPECT_EQ(scene.render->getInput(""), ordering->source);
  EXPECT_EQ(scene.render->getInputs("world").size(), 2u);
  // Edges need nodes of the graph.
  RenderNode stray;
  EXPECT_EQ(editor.createEdge(&stray, scene.render, "world"), nullptr);
}

TEST(GraphGLTest, DeleteEdgeRemovesTheDependency) {
  GLScene scene;
  GraphEditor editor(scene.system->getGraph());
  auto* extra = new CameraNode();
  extra->setName("Extra");
  editor.addNode(extra);
  Edge* edge = editor.createEdge(extra, scene.render, "unused");
  ASSERT_TRUE(scene.system->draw(scene.target));
  EXPECT_EQ(extra->getExecutionCount(), 1);
  EXPECT_TRUE(editor.deleteEdge(edge));
  EXPECT_FALSE(editor.deleteEdge(edge));
  ASSERT_TRUE(scene.system->draw(scene.target));
  EXPECT_EQ(extra->getExecutionCount(), 1);
  EXPECT_EQ(scene.render->getExecutionCount(), 2);
  EXPECT_EQ(scene.render->getInput("unused"), nullptr);
  // The (source, target, name) form.
  editor.createEdge(extra, scene.render, "unused");
  EXPECT_TRUE(editor.deleteEdge(extra, scene.render, "unused"));
  EXPECT_FALSE(editor.deleteEdge(extra, scene.render, "unused"));
}

TEST(GraphGLTest, ACycleIsRefusedWithAMessageAndRunsNothing) {
  GLScene scene;
  GraphEditor editor(scene.system->getGraph());
  // The clear now depends on the last state, which depends on the clear.
  Edge* back = editor.createEdge(scene.target->getLastState(), scene.clear);
  DebugCapture capture;
  EXPECT_FALSE(scene.system->draw(scene.target));
  EXPECT_TRUE(capture.contains("cycle")) << (capture.lines.empty() ? "" : capture.lines[0]);
  EXPECT_TRUE(scene.system->getExecutionTrace().empty());
  EXPECT_EQ(scene.clear->getExecutionCount(), 0);
  EXPECT_EQ(scene.render->getExecutionCount(), 0);
  editor.deleteEdge(back);
  EXPECT_TRUE(scene.system->draw(scene.target));
}

TEST(GraphGLTest, PrintOutGraphPrintsEveryNodeAndEdgeOnlyOnTheDebugChannel) {
  GLScene scene;
  {
    // Silent while the channel is off.
    std::vector<std::string> lines;
    voSupport::Debug::getInstance().setSink([&](int, const char*, const char* text) { lines.push_back(text); });
    printOutGraph(scene.system->getGraph());
    voSupport::Debug::getInstance().setSink({});
    EXPECT_TRUE(lines.empty());
  }
  DebugCapture capture;
  printOutGraph(scene.system->getGraph());
  const std::size_t expected = scene.system->getGraph()->getNodes().size() + scene.system->getGraph()->getEdges().size();
  EXPECT_EQ(capture.lines.size(), expected);
  EXPECT_TRUE(capture.contains("\"RenderTri\" RenderNode"));
  EXPECT_TRUE(capture.contains("name \"camera\""));
}
