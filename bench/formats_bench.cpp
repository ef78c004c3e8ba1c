// Store reading and writing in every format the stores take (XML, YAML, and
// both gzip-compressed), on 5000 real SIFT keypoints and their 128-float
// descriptors; and the match file of those 5000 keypoints. Items are
// keypoints; the file size is a counter. The stores, also as a Python
// program writes them with cv2.FileStorage, and the match file are read
// directly; the "FileStorage" and "Fscanf" cases time the readers that
// handle every other text, on the same files.
#include "bench/cena.hpp"
#include "formats/match_file.hpp"
#include "formats/stores.hpp"

#include <sys/stat.h>

namespace {

const char* const kFormatos[] = {"xml", "yml", "xml.gz", "yml.gz"};

const cena::Descritores& dados() {
  static const cena::Descritores d = cena::sift5000(1, 3);
  return d;
}

double tamanho(const std::string& arquivo) {
  struct stat st {};
  return ::stat(arquivo.c_str(), &st) == 0 ? static_cast<double>(st.st_size) : 0.0;
}

void fecha(benchmark::State& state, const std::string& arquivo) {
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(dados().keypoints.size()));
  state.counters["bytes"] = tamanho(arquivo);
  state.SetLabel(kFormatos[state.range(0)]);
}

void BM_GravaDescritores(benchmark::State& state) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo(std::string("des.") + kFormatos[state.range(0)]);
  for (auto _ : state) formats::impDescritores(arquivo, dados().keypoints, dados().descriptors);
  fecha(state, arquivo);
}

// The same store as a Python program writes it with cv2.FileStorage: the
// keypoint numbers one at a time as doubles, in block, then the matrix.
void gravaComoPython(const std::string& arquivo) {
  cv::FileStorage fs(arquivo, cv::FileStorage::WRITE);
  fs << "keypoints" << "[";
  for (const cv::KeyPoint& k : dados().keypoints)
    fs << double{k.pt.x} << double{k.pt.y} << double{k.size} << double{k.angle} << double{k.response} << k.octave
       << k.class_id;
  fs << "]";
  cv::write(fs, "descriptors", dados().descriptors);
}

void gravaNossa(const std::string& arquivo) {
  formats::impDescritores(arquivo, dados().keypoints, dados().descriptors);
}

using Leitor = void (*)(const std::string&, std::vector<cv::KeyPoint>&, cv::Mat&);

// Reads with `le` the store written by `grava`: the tools' reader, or the
// FileStorage path it falls back to.
void leDescritoresCom(benchmark::State& state, Leitor le, void (*grava)(const std::string&) = gravaNossa) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo(std::string("des.") + kFormatos[state.range(0)]);
  grava(arquivo);
  std::vector<cv::KeyPoint> k;
  cv::Mat d;
  for (auto _ : state) le(arquivo, k, d);
  if (d.rows != dados().descriptors.rows || cv::norm(d, dados().descriptors, cv::NORM_INF) != 0)
    state.SkipWithError("a leitura nao devolveu os descritores gravados");
  fecha(state, arquivo);
}

void BM_LeDescritores(benchmark::State& state) { leDescritoresCom(state, formats::leDescritores); }

void BM_LeDescritoresFileStorage(benchmark::State& state) {
  leDescritoresCom(state, formats::leDescritoresFileStorage);
}

void BM_LeDescritoresPython(benchmark::State& state) {
  leDescritoresCom(state, formats::leDescritores, gravaComoPython);
}

void BM_LeDescritoresPythonFileStorage(benchmark::State& state) {
  leDescritoresCom(state, formats::leDescritoresFileStorage, gravaComoPython);
}

void BM_GravaKeyPoints(benchmark::State& state) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo(std::string("key.") + kFormatos[state.range(0)]);
  for (auto _ : state) formats::impKeyPoints(arquivo, dados().keypoints);
  fecha(state, arquivo);
}

void BM_LeKeyPoints(benchmark::State& state) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo(std::string("key.") + kFormatos[state.range(0)]);
  formats::impKeyPoints(arquivo, dados().keypoints);
  std::vector<cv::KeyPoint> k;
  for (auto _ : state) k = formats::leKeyPoints(arquivo);
  if (k.size() != dados().keypoints.size()) state.SkipWithError("a leitura nao devolveu os keypoints gravados");
  fecha(state, arquivo);
}

// Keypoint i of the first half with keypoint i of the second.
std::vector<cv::DMatch> pares() {
  std::vector<cv::DMatch> m;
  for (int i = 0; i < 2500; ++i) m.emplace_back(i, 2500 + i, static_cast<float>(i));
  return m;
}

void BM_GravaMatch(benchmark::State& state) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo("match.txt");
  const std::vector<cv::DMatch> m = pares();
  for (auto _ : state) formats::impMatch(m, dados().keypoints, dados().keypoints, arquivo);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(m.size()));
  state.counters["bytes"] = tamanho(arquivo);
}

// Reads with `le`: the tools' reader, or the fscanf path it falls back to.
void leMatchCom(benchmark::State& state, void (*le)(std::vector<cv::DMatch>&, std::vector<cv::KeyPoint>&,
                                                    std::vector<cv::KeyPoint>&, const std::string&)) {
  cena::PastaTemp pasta;
  const std::string arquivo = pasta.arquivo("match.txt");
  const std::vector<cv::DMatch> m = pares();
  formats::impMatch(m, dados().keypoints, dados().keypoints, arquivo);
  std::vector<cv::DMatch> lidos;
  std::vector<cv::KeyPoint> k1, k2;
  for (auto _ : state) le(lidos, k1, k2, arquivo);
  if (lidos.size() != m.size()) state.SkipWithError("a leitura nao devolveu os casamentos gravados");
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(m.size()));
  state.counters["bytes"] = tamanho(arquivo);
}

void BM_LeMatch(benchmark::State& state) { leMatchCom(state, formats::leMatch); }

void BM_LeMatchFscanf(benchmark::State& state) { leMatchCom(state, formats::leMatchFscanf); }

}  // namespace

BENCHMARK(BM_GravaDescritores)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeDescritores)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeDescritoresFileStorage)->ArgName("formato")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeDescritoresPython)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeDescritoresPythonFileStorage)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GravaKeyPoints)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeKeyPoints)->ArgName("formato")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GravaMatch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeMatch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeMatchFscanf)->Unit(benchmark::kMillisecond);
