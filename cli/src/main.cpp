#include "Cli.h"

#include <cstdio>
#include <iostream>

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    const int status =
        fq::cli::runCli({argv + 1, static_cast<std::size_t>(argc - 1)}, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
