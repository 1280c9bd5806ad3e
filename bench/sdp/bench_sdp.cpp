// Documents per second for a typed read and print of the SDP corpus, ours against sofia-sip's
// sdp_parse + sdp_print over the same texts, and the ratio of the two measured in one loop.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <sofia-sip/sdp.h>

#include "sdp/sdp.h"

namespace {

const std::vector<std::string>& corpus()
{
    static const std::vector<std::string> docs = [] {
        std::vector<std::filesystem::path> paths;
        for (const auto& e : std::filesystem::directory_iterator(SDP_CORPUS_DIR))
            if (e.path().extension() == ".sdp") paths.push_back(e.path());
        std::sort(paths.begin(), paths.end());
        std::vector<std::string> out;
        for (const auto& p : paths) {
            std::ifstream in(p, std::ios::binary);
            out.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        if (out.empty()) throw std::runtime_error("empty SDP corpus");
        return out;
    }();
    return docs;
}

// Read into the session model and print the model: what the library does with a remote offer.
size_t ours_typed(const std::string& text)
{
    auto description = sdp::session_description::create(text);
    sdp::session_group group(description);
    return group.as_session_description().as_sdp().size();
}

// Read into typed lines and print them back.
size_t ours_lines(const std::string& text) { return sdp::session_description::create(text).as_sdp().size(); }

size_t sofia(const std::string& text)
{
    sdp_parser_t* parser = sdp_parse(nullptr, text.data(), static_cast<issize_t>(text.size()), 0);
    size_t printed = 0;
    if (sdp_session_t* session = sdp_session(parser)) {
        sdp_printer_t* printer = sdp_print(nullptr, session, nullptr, 0, 0);
        if (sdp_message(printer)) printed = sdp_message_size(printer);
        sdp_printer_free(printer);
    }
    sdp_parser_free(parser);
    return printed;
}

template <size_t (*Fn)(const std::string&)>
void run_corpus(benchmark::State& state)
{
    const auto& docs = corpus();
    for (auto _ : state)
        for (const auto& d : docs) benchmark::DoNotOptimize(Fn(d));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * docs.size()));
    state.SetLabel("items = documents");
}

void BM_ours_typed_parse_print(benchmark::State& state) { run_corpus<ours_typed>(state); }
void BM_ours_lines_parse_print(benchmark::State& state) { run_corpus<ours_lines>(state); }
void BM_sofia_parse_print(benchmark::State& state) { run_corpus<sofia>(state); }

// Both in one loop, interleaved, so that the ratio is not skewed by a change of machine load.
void BM_ratio_ours_typed_vs_sofia(benchmark::State& state)
{
    using clock = std::chrono::steady_clock;
    const auto& docs = corpus();
    clock::duration ours_time{}, sofia_time{};
    for (auto _ : state) {
        auto t0 = clock::now();
        for (const auto& d : docs) benchmark::DoNotOptimize(ours_typed(d));
        auto t1 = clock::now();
        for (const auto& d : docs) benchmark::DoNotOptimize(sofia(d));
        auto t2 = clock::now();
        ours_time += t1 - t0;
        sofia_time += t2 - t1;
    }
    double n = static_cast<double>(state.iterations() * docs.size());
    double ours_rate = n / std::chrono::duration<double>(ours_time).count();
    double sofia_rate = n / std::chrono::duration<double>(sofia_time).count();
    state.counters["ours_docs_per_s"] = ours_rate;
    state.counters["sofia_docs_per_s"] = sofia_rate;
    state.counters["ours_over_sofia"] = ours_rate / sofia_rate;
}

// Fails loudly when sofia-sip refuses a document, since its rate would then be meaningless.
void check_sofia_reads_corpus()
{
    for (const auto& d : corpus()) {
        sdp_parser_t* parser = sdp_parse(nullptr, d.data(), static_cast<issize_t>(d.size()), 0);
        const char* error = sdp_parsing_error(parser);
        bool ok = sdp_session(parser) != nullptr && (error == nullptr || *error == '\0');
        sdp_parser_free(parser);
        if (!ok) throw std::runtime_error(std::string("sofia-sip refuses a corpus document: ") + (error ? error : ""));
    }
}

const int kChecked = (check_sofia_reads_corpus(), 0);

}  // namespace

BENCHMARK(BM_ours_typed_parse_print);
BENCHMARK(BM_ours_lines_parse_print);
BENCHMARK(BM_sofia_parse_print);
BENCHMARK(BM_ratio_ours_typed_vs_sofia);
