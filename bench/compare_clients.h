#pragma once

namespace bench {

// "bench_compare client ...": one piece of work through the library.
int run_client(int argc, char** argv);

}  // namespace bench
