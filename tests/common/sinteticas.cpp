#include "tests/common/sinteticas.hpp"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace teste {

cv::Mat_<uchar> textura(int rows, int cols, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat_<float> soma(rows, cols, 0.0f);
  for (double sigma : {1.5, 4.0, 10.0}) {
    cv::Mat_<float> ruido(rows, cols);
    rng.fill(ruido, cv::RNG::UNIFORM, 0.0, 1.0);
    cv::GaussianBlur(ruido, ruido, cv::Size(), sigma, sigma, cv::BORDER_REFLECT);
    cv::normalize(ruido, ruido, 0.0, 1.0, cv::NORM_MINMAX);
    soma += ruido;
  }
  cv::Mat_<uchar> img;
  cv::normalize(soma, soma, 0.0, 255.0, cv::NORM_MINMAX);
  soma.convertTo(img, CV_8U);
  return img;
}

cv::Mat_<uchar> discos(int rows, int cols, unsigned seed) {
  cv::RNG rng(seed);
  cv::Mat_<uchar> img(rows, cols, uchar(220));
  const int n = std::max(1, rows * cols / 2000);
  for (int i = 0; i < n; ++i) {
    const cv::Point centro(rng.uniform(0, cols), rng.uniform(0, rows));
    const int raio = rng.uniform(3, std::max(4, std::min(rows, cols) / 8));
    cv::circle(img, centro, raio, cv::Scalar(rng.uniform(0, 120)), cv::FILLED, cv::LINE_AA);
  }
  cv::GaussianBlur(img, img, cv::Size(), 1.0);
  return img;
}

cv::Mat_<uchar> xadrez(int rows, int cols, int lado) {
  cv::Mat_<uchar> img(rows, cols);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) img(r, c) = ((r / lado + c / lado) % 2) ? 255 : 0;
  return img;
}

cv::Mat_<uchar> uniforme(int rows, int cols, uchar nivel) { return cv::Mat_<uchar>(rows, cols, nivel); }

cv::Matx33d gira(const cv::Mat_<uchar>& img, double graus, cv::Mat_<uchar>& girada) {
  const cv::Point2f centro((img.cols - 1) * 0.5f, (img.rows - 1) * 0.5f);
  const cv::Mat A = cv::getRotationMatrix2D(centro, graus, 1.0);
  cv::warpAffine(img, girada, A, img.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  cv::Matx33d H = cv::Matx33d::eye();
  for (int r = 0; r < 2; ++r)
    for (int c = 0; c < 3; ++c) H(r, c) = A.at<double>(r, c);
  return H;
}

cv::Mat leCinzaDeDados(const std::string& nome) {
  cv::Mat img = cv::imread(std::string(QUIVELAR_DATA) + "/" + nome, cv::IMREAD_GRAYSCALE);
  if (img.empty()) throw std::runtime_error("nao leu " + nome);
  return img;
}

std::vector<cv::Point> pixelsDaCor(const cv::Mat_<cv::Vec3b>& img, cv::Vec3b cor) {
  std::vector<cv::Point> pts;
  for (int r = 0; r < img.rows; ++r)
    for (int c = 0; c < img.cols; ++c)
      if (img(r, c) == cor) pts.emplace_back(c, r);
  return pts;
}

std::vector<cv::KeyPoint> leReferencia(const std::string& nome, cv::Mat* desc) {
  cv::FileStorage fs(std::string(QUIVELAR_DATA) + "/../tests/data/reference/" + nome, cv::FileStorage::READ);
  if (!fs.isOpened()) throw std::runtime_error("nao leu " + nome);
  std::vector<cv::KeyPoint> kps;
  cv::read(fs["keypoints"], kps);
  if (desc) fs["descriptors"] >> *desc;
  return kps;
}

int parceiro(const cv::KeyPoint& k, const std::vector<cv::KeyPoint>& b) {
  int melhor = -1;
  double dMelhor = 1.5 * 1.5;
  for (size_t j = 0; j < b.size(); ++j) {
    const double dx = b[j].pt.x - k.pt.x, dy = b[j].pt.y - k.pt.y, d = dx * dx + dy * dy;
    if (d <= dMelhor && std::fabs(b[j].size - k.size) <= 0.1 * k.size) dMelhor = d, melhor = static_cast<int>(j);
  }
  return melhor;
}

double fracaoAchada(const std::vector<cv::KeyPoint>& a, const std::vector<cv::KeyPoint>& b) {
  int n = 0;
  for (const cv::KeyPoint& k : a) n += parceiro(k, b) >= 0;
  return a.empty() ? 0.0 : static_cast<double>(n) / a.size();
}

void salva(const cv::Mat& img, const std::string& arquivo) {
  if (!cv::imwrite(arquivo, img)) throw std::runtime_error("nao gravou " + arquivo);
}

void salvaMat33(const cv::Matx33d& H, const std::string& arquivo) {
  FILE* f = std::fopen(arquivo.c_str(), "w");
  if (!f) throw std::runtime_error("nao gravou " + arquivo);
  for (int r = 0; r < 3; ++r) std::fprintf(f, "%.17g %.17g %.17g\n", H(r, 0), H(r, 1), H(r, 2));
  std::fclose(f);
}

}  // namespace teste
