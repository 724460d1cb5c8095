// libFuzzer over reading and every query and report of what was read (clang, -DZEL_FUZZ=ON):
//   fuzz_seeds seeds && fuzz_reading -close_fd_mask=3 -max_len=65536 -max_total_time=600 corpus seeds
#include "../exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    static FILE* report = std::fopen("/dev/null", "w");
    exercise_file(std::string(reinterpret_cast<const char*>(bytes), count), report);
    return 0;
}
