// The host guide's snippets, compiled from the page itself, do what the page
// says they do.
#include <gtest/gtest.h>

#include "guide_prelude.h"
#include "qdparam/paramset.h"
#include "support/capture.h"

namespace guide {
struct Box {
  double x, y, opacity;
};
struct BoxParams {
  qd::Param x, y, opacity;
};
std::optional<qd::Set> LoadEffect(const std::string& path);
void OnClipChanged(qd::Set& set, double startSeconds, double lengthSeconds);
std::optional<BoxParams> FindBoxParams(const qd::Set& set);
Box BoxAtFrame(const BoxParams& box, qd::Rate rate, std::int64_t frame);
std::vector<double> OpacityCurve(const qd::Param& opacity, qd::Rate rate, std::int64_t frames);
std::optional<unsigned int> DragKey(qd::Param& param, unsigned int index, double seconds);
bool AddEasedKey(qd::Param& param, double time, double value);
bool ThinRecording(qd::Param& param, double tolerance);
bool CopyLook(const qd::Set& from, qd::Set& to);
bool Save(const qd::Set& set, const std::string& path);
qd::Set SnapshotForRender(const qd::Set& edited);
double RenderOpacity(const qd::Set& snapshot, double time);
bool ShareContent(const qdcore::CXMLObject& content, qdcore::CGUID& id);
extern std::vector<std::string> g_reports;
void RouteReports();
}  // namespace guide

namespace {

const std::string kPip = std::string(QD_EXAMPLES_DIR) + "/pip.xml";

TEST(HostGuide, SnippetsDoWhatThePageSays) {
  EXPECT_FALSE(guide::LoadEffect("/nonexistent.xml"));
  auto set = guide::LoadEffect(kPip);
  ASSERT_TRUE(set);
  guide::OnClipChanged(*set, 0.0, 10.0);
  const auto box = guide::FindBoxParams(*set);
  ASSERT_TRUE(box);
  EXPECT_EQ(guide::BoxAtFrame(*box, {25, 1}, 100).x, 20.0);  // the "4s" keyframe
  EXPECT_EQ(guide::OpacityCurve(box->opacity, {25, 1}, 50).at(25), 100.0);

  qd::Param x = box->x;
  EXPECT_EQ(guide::DragKey(x, 1, 1.0), 1u);
  EXPECT_EQ(x.value(5.0), 20.0);
  EXPECT_TRUE(guide::AddEasedKey(x, 7.0, 60.0));
  EXPECT_EQ(x.value(7.0), 60.0);
  EXPECT_FALSE(guide::ThinRecording(x, -1.0));
  EXPECT_TRUE(guide::ThinRecording(x, 0.0));
  EXPECT_EQ(x.value(7.0), 60.0);

  const qd::Set frame = guide::SnapshotForRender(*set);
  EXPECT_EQ(guide::RenderOpacity(frame, 5.0), 100.0);

  auto target = guide::LoadEffect(kPip);
  ASSERT_TRUE(target);
  EXPECT_TRUE(guide::CopyLook(*set, *target));

  qdtest::TempDir dir;
  EXPECT_TRUE(guide::Save(*set, dir.path() + "/saved.xml"));

  qdcore::CGUID id;
  EXPECT_TRUE(guide::ShareContent(qdcore::CXMLObject(qdcore::CStringPool::GetStringRef(u"Lut")), id));

  guide::RouteReports();
  (void)set->native().GetValueDouble(qdcore::CStringPool::GetStringRef(u"caption"), 0.0, 0.0);
  EXPECT_FALSE(guide::g_reports.empty());
  qdcore::SetAssertHandler(nullptr);
}

}  // namespace
