#include "fq/core/ChordPosition.h"

namespace fq::core {

nlohmann::ordered_json toJson(std::span<const ChordPosition> positions) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& p : positions)
        array.push_back({{"position", p.position}, {"fingering", p.fingering}});
    return array;
}

Bytes encodeChordPositions(std::span<const ChordPosition> positions) {
    const auto text = toJson(positions).dump();
    return {text.begin(), text.end()};
}

namespace {

/// Builds the shapes straight from the parser's events: a memo hit decodes a few
/// hundred shapes, and a document tree would allocate a node for every number.
class PositionsReader final : public nlohmann::json_sax<nlohmann::json> {
public:
    std::vector<ChordPosition> positions;
    bool wellFormed = true;

    bool null() override { return fail(); }
    bool boolean(bool) override { return fail(); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override {
        return value <= 1000 ? add(static_cast<number_integer_t>(value)) : fail();
    }
    bool number_float(number_float_t, const string_t&) override { return fail(); }
    bool string(string_t&) override { return fail(); }
    bool binary(binary_t&) override { return fail(); }

    bool start_object(std::size_t) override {
        if (depth_ != 1) return fail();
        ++depth_;
        positions.emplace_back();
        seen_ = 0;
        return true;
    }
    bool key(string_t& name) override {
        if (name == "position")
            current_ = &positions.back().position, seen_ |= 1;
        else if (name == "fingering")
            current_ = &positions.back().fingering, seen_ |= 2;
        else
            return fail();
        return true;
    }
    bool end_object() override {
        --depth_;
        return seen_ == 3 && positions.back().position.size() == 6 ? true : fail();
    }
    bool start_array(std::size_t) override {
        if (depth_ != 0 && !(depth_ == 2 && current_)) return fail();
        if (current_) current_->reserve(6);
        ++depth_;
        return true;
    }
    bool end_array() override {
        --depth_;
        current_ = nullptr;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return fail();
    }

private:
    bool add(number_integer_t value) {
        if (depth_ != 3 || !current_ || value < -1 || value > 1000) return fail();
        current_->push_back(static_cast<int>(value));
        return true;
    }
    bool fail() { return wellFormed = false; }

    int depth_ = 0;
    int seen_ = 0;
    std::vector<int>* current_ = nullptr;
};

} // namespace

tl::expected<std::vector<ChordPosition>, Error>
decodeChordPositions(std::span<const std::uint8_t> bytes) {
    PositionsReader reader;
    reader.positions.reserve(bytes.size() / 50); // a shape takes about 55 bytes
    const bool parsed = nlohmann::json::sax_parse(bytes.begin(), bytes.end(), &reader,
                                                  nlohmann::json::input_format_t::json, false);
    if (!parsed || !reader.wellFormed)
        return tl::unexpected(Error{"A stored shape list must be an array of {\"position\": six "
                                    "frets, \"fingering\": fingers}"});
    return std::move(reader.positions);
}

} // namespace fq::core
