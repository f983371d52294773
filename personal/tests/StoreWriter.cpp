// A second program writing to the shared store, for the tests that race processes:
//   fq_store_writer STORE KEY COUNT TAG
// appends "TAG-0" … "TAG-(COUNT-1)" to the JSON list under KEY, one read-modify-write
// transaction per item. Exit status 0 when every append was stored.
#include <fq/personal/SharedStore.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: fq_store_writer STORE KEY COUNT TAG\n");
        return 2;
    }
    const std::string key = argv[2];
    const int count = std::stoi(argv[3]);
    const std::string tag = argv[4];

    auto store = fq::personal::SharedStore::open(argv[1]);
    if (!store) {
        std::fprintf(stderr, "%s\n", store.error().message.c_str());
        return 1;
    }
    for (int i = 0; i < count; ++i) {
        bool readable = true;
        auto done = (*store)->update([&](fq::personal::SharedStore::Transaction& transaction) {
            const auto bytes = transaction.bytes(key).value_or(fq::core::Bytes{'[', ']'});
            auto list = nlohmann::json::parse(bytes, nullptr, false);
            if (!list.is_array()) {
                readable = false;
                return;
            }
            list.push_back(tag + "-" + std::to_string(i));
            const auto text = list.dump();
            (void)transaction.set(key, fq::core::Bytes(text.begin(), text.end()));
        });
        if (!done || !readable) {
            std::fprintf(stderr, "%s\n",
                         done ? "the list is not JSON" : done.error().message.c_str());
            return 1;
        }
    }
    return 0;
}
