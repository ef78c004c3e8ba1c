// Fixed inputs shared by the benchmark files, so that every stage that says
// "the same keypoints" really times the same ones.
#pragma once

#include "features/sift.hpp"
#include "support/erro.hpp"
#include "support/imagem.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace cena {

// data/imgN.png in grey, read once.
inline const cv::Mat_<uchar>& graf(int n) {
  static cv::Mat_<uchar> imagens[7];
  if (imagens[n].empty()) tvm::le(imagens[n], std::string(QUIVELAR_DATA) + "/img" + std::to_string(n) + ".png");
  return imagens[n];
}

// The 1000 strongest of the SIFT keypoints that DesSift would detect on
// data/img1.png (retainBest may keep ties beyond 1000: cut to exactly 1000).
inline const std::vector<cv::KeyPoint>& mil() {
  static const std::vector<cv::KeyPoint> k = [] {
    std::vector<cv::KeyPoint> r = features::detectaSift(graf(1));
    cv::KeyPointsFilter::retainBest(r, 1000);
    r.resize(std::min<size_t>(r.size(), 1000));
    return r;
  }();
  return k;
}

// OpenCV's thread count for one benchmark: the argument n > 0 sets n
// threads, 0 the machine's default; the previous count comes back after.
class Threads {
 public:
  explicit Threads(int64_t n) : antes_(cv::getNumThreads()) { cv::setNumThreads(n > 0 ? static_cast<int>(n) : -1); }
  ~Threads() { cv::setNumThreads(antes_); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  int antes_;
};

}  // namespace cena

namespace cena {

struct Descritores {
  std::vector<cv::KeyPoint> keypoints;
  cv::Mat descriptors;  // CV_32F, 128 wide
};

// 5000 real SIFT keypoints and descriptors: those of data/img<a>.png followed
// by those of data/img<b>.png, cut at 5000 (no single graf image has that
// many). Keypoints of image b keep their own coordinates.
inline Descritores sift5000(int a, int b) {
  constexpr int kN = 5000;
  const cv::Ptr<cv::SIFT> sift = features::criaSift();
  Descritores r;
  for (int n : {a, b}) {
    std::vector<cv::KeyPoint> k;
    cv::Mat d;
    sift->detectAndCompute(graf(n), cv::noArray(), k, d);
    r.keypoints.insert(r.keypoints.end(), k.begin(), k.end());
    r.descriptors.push_back(d);
  }
  if (r.descriptors.rows < kN) tvm::erro("Erro: menos de 5000 keypoints SIFT nas imagens de dados");
  r.keypoints.resize(kN);
  r.descriptors = r.descriptors.rowRange(0, kN).clone();
  return r;
}

// A fresh folder under /tmp for the benchmark's files, removed with them.
class PastaTemp {
 public:
  PastaTemp() {
    char modelo[] = "/tmp/quivelar-bench-XXXXXX";
    if (::mkdtemp(modelo) == nullptr) tvm::erro("Erro: nao criou pasta temporaria ", modelo);
    caminho_ = modelo;
  }
  ~PastaTemp() {
    for (const std::string& f : arquivos_) std::remove(f.c_str());
    ::rmdir(caminho_.c_str());
  }
  PastaTemp(const PastaTemp&) = delete;
  PastaTemp& operator=(const PastaTemp&) = delete;

  // The path of `nome` in the folder, removed at the end.
  std::string arquivo(const std::string& nome) {
    arquivos_.push_back(caminho_ + "/" + nome);
    return arquivos_.back();
  }

 private:
  std::string caminho_;
  std::vector<std::string> arquivos_;
};

}  // namespace cena
