// The LV2 equaliser and convolver in series, from standard input to standard output: lv2_soak ROOMS
#include <cstdio>

#include "../lv2/host.h"

int main(int, char** words) {
  using jurn_test::Channels;
  using jurn_test::Host;
  constexpr int kFrames = 6400, kCall = 640;
  const std::string rooms[] = {std::string(words[1]) + "/hall.wav",
                               std::string(words[1]) + "/street.wav"};
  std::vector<float> controls = jurn_test::flat();
  controls[0] = 1.0F;
  Host equaliser("equaliser-mono", 16000, 1, 1, true, controls);
  Host convolver("convolver-mono", 16000, 1, 1, true, {0.0F, -90.0F, 0.0F, 0.0F});
  convolver.set_file("impulse-response", rooms[0]);
  Channels in(1, std::vector<float>(kFrames)), equalised = in, out = in;
  equaliser.activate();
  convolver.activate();
  for (int count = 1; std::fread(in[0].data(), sizeof(float), kFrames, stdin) == kFrames; ++count) {
    if (count % 2 == 0) equaliser.control(3) = static_cast<float>(count / 2 % 7 - 3);
    if (count % 4 == 0)
      convolver.set_file("impulse-response", rooms[static_cast<std::size_t>(count / 4 % 2)]);
    for (int at = 0; at < kFrames; at += kCall) {
      equaliser.run(in, &equalised, at, kCall);
      convolver.run(equalised, &out, at, kCall);
    }
    std::fwrite(out[0].data(), sizeof(float), kFrames, stdout);
    std::fflush(stdout);
  }
}
