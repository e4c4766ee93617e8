// The executable of the demo's sample app bundles: it stays running for a
// while (as an app would) and then ends by itself.
#include <unistd.h>

#include <cstdlib>

int main(int argc, char** argv) {
    int seconds = argc > 1 ? std::atoi(argv[1]) : 120;
    for (int second = 0; second < seconds; ++second) ::sleep(1);
    return 0;
}
