// A small host: loads an effect's parameter set, renders 250 frames at
// 25 fps by printing the box's position and opacity, drags a keyframe as an
// editor would, validates the set and stores it.
//
//   host [SET.xml] [OUT.xml]
//
// Only the host API's header is needed: UTF-8 text, seconds as double.
#include <cstdio>
#include <qdparam/qdparam.hpp>
#include <string>
#include <vector>

#ifndef QD_EXAMPLES_DIR
#define QD_EXAMPLES_DIR "."
#endif

namespace {

int Fail(const qd::Error& error) {
  std::fprintf(stderr, "host: %s\n", error.describe().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string in = argc > 1 ? argv[1] : QD_EXAMPLES_DIR "/pip.xml";
  const std::string out = argc > 2 ? argv[2] : "pip-edited.xml";

  qd::Result<qd::Set> loaded = qd::Set::load(in);
  if (!loaded) return Fail(loaded.error());
  qd::Set set = std::move(*loaded);
  set.set_clip(0.0, 10.0);  // the clip the effect sits on: 10 s from the start

  const auto x = set.param("position_x");
  const auto y = set.param("position_y");
  const auto opacity = set.param("opacity");
  if (!x || !y || !opacity) return Fail({"the set lacks position_x, position_y or opacity"});

  // Render: one value per frame, each at its exact frame time.
  const qd::Rate rate{25, 1};
  constexpr std::size_t kFrames = 250;
  std::vector<double> xs(kFrames), ys(kFrames), alphas(kFrames);
  x->frames(rate, 0, xs);
  y->frames(rate, 0, ys);
  opacity->frames(rate, 0, alphas);
  for (std::size_t frame = 0; frame < kFrames; frame += 25) {
    std::printf("frame %3zu  t=%5.2f s  box at (%5.1f %%, %5.1f %%)  opacity %5.1f %%\n", frame,
                rate.frame_time(static_cast<std::int64_t>(frame)), xs[frame], ys[frame],
                alphas[frame]);
  }

  // Edit: drag the box's middle keyframe one second later.
  qd::Param path = *x;
  const std::vector<qd::Keyframe> keys = path.keys();
  if (keys.size() < 2) return Fail({"position_x has fewer than two keyframes"});
  const qd::Result<unsigned int> moved = path.move_key(keys[1].index, keys[1].time + 1.0);
  if (!moved) return Fail(moved.error());
  std::printf("moved keyframe %u to %.2f s: position_x at 5 s is now %.1f %%\n", keys[1].index,
              keys[1].time + 1.0, path.value(5.0).value_or(0.0));

  // Validate: the set's rules may narrow limits and pull values back.
  const qd::Result<bool> validated = set.validate();
  if (!validated) return Fail(validated.error());
  std::printf("validation %s\n", *validated ? "changed the set" : "changed nothing");

  // Store: atomically, so a crash never leaves half a file.
  if (const qd::Status stored = set.store(out); !stored) return Fail(stored.error());
  std::printf("stored %s\n", out.c_str());
  return 0;
}
