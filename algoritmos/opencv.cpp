#include "algoritmos/opencv.hpp"

#include "support/erro.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace algoritmos {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
// Past these a run only grows memory or time, never keypoints.
constexpr int kMaxFeatures = 10000000;
constexpr int kMaxNiveis = 32;

const std::vector<std::pair<const char*, int>> kDifusividades = {
    {"pm_g1", cv::KAZE::DIFF_PM_G1},
    {"pm_g2", cv::KAZE::DIFF_PM_G2},
    {"weickert", cv::KAZE::DIFF_WEICKERT},
    {"charbonnier", cv::KAZE::DIFF_CHARBONNIER}};

[[noreturn]] void naoDescreve(size_t i, const std::string& campo, const std::string& faixa, const char* tool,
                              const char* detectores) {
  tvm::erro("Erro: keypoint ", std::to_string(i) + " com " + campo + " fora de " + faixa,
            std::string(": ") + tool + " so descreve keypoints de " + detectores);
}

}  // namespace

const std::vector<Opcao> kOpcoesOrb = {
    {"nfeatures", "500", "keypoints mantidos, os de maior resposta"},
    {"scalefactor", "1.2", "razao entre niveis da piramide"},
    {"nlevels", "8", "niveis da piramide"},
    {"edgethreshold", "31", "borda sem keypoints, em pixels"},
    {"firstlevel", "0", "nivel da imagem original"},
    {"wta_k", "2", "pontos por comparacao do descritor (2, 3 ou 4)"},
    {"scoretype", "harris", "harris ou fast"},
    {"patchsize", "31", "lado do patch do descritor"},
    {"fastthreshold", "20", "limiar do FAST"},
};

cv::Ptr<cv::Feature2D> criaOrb(const Valores& v) {
  const int niveis = v.inteiro("nlevels", 1, kMaxNiveis);
  const int wta = v.inteiro("wta_k", 2, 4);
  if (menorLadoOrb(v) > 65536)
    tvm::erro("Erro: orb.scalefactor elevado a orb.nlevels - 1 passa de 65536: o ultimo nivel nao teria pixel");
  return cv::ORB::create(v.inteiro("nfeatures", 1, kMaxFeatures), static_cast<float>(v.real("scalefactor", 1.001, 8)),
                         niveis, v.inteiro("edgethreshold", 0, 1000), v.inteiro("firstlevel", 0, niveis - 1), wta,
                         static_cast<cv::ORB::ScoreType>(
                             v.escolha("scoretype", {{"harris", cv::ORB::HARRIS_SCORE}, {"fast", cv::ORB::FAST_SCORE}})),
                         v.inteiro("patchsize", 2, 1000), v.inteiro("fastthreshold", 0, 255));
}

const std::vector<Opcao> kOpcoesBrisk = {
    {"thresh", "30", "limiar do AGAST"},
    {"octaves", "3", "oitavas"},
    {"patternscale", "1", "escala do padrao de amostras"},
};

cv::Ptr<cv::Feature2D> criaBrisk(const Valores& v) {
  return cv::BRISK::create(v.inteiro("thresh", 0, 255), v.inteiro("octaves", 0, 8),
                           static_cast<float>(v.real("patternscale", 0.01, 100)));
}

const std::vector<Opcao> kOpcoesAkaze = {
    {"descriptor_type", "mldb", "mldb, mldb_upright, kaze ou kaze_upright (estes dois float)"},
    {"descriptor_size", "0", "bits do descritor MLDB (0: todos, 486)"},
    {"descriptor_channels", "3", "canais do MLDB (1 a 3)"},
    {"threshold", "0.001", "limiar da resposta do detector"},
    {"noctaves", "4", "oitavas"},
    {"noctavelayers", "4", "subniveis por oitava"},
    {"diffusivity", "pm_g2", "pm_g1, pm_g2, weickert ou charbonnier"},
};

cv::Ptr<cv::Feature2D> criaAkaze(const Valores& v) {
  const auto tipo = static_cast<cv::AKAZE::DescriptorType>(
      v.escolha("descriptor_type", {{"mldb", cv::AKAZE::DESCRIPTOR_MLDB},
                                    {"mldb_upright", cv::AKAZE::DESCRIPTOR_MLDB_UPRIGHT},
                                    {"kaze", cv::AKAZE::DESCRIPTOR_KAZE},
                                    {"kaze_upright", cv::AKAZE::DESCRIPTOR_KAZE_UPRIGHT}}));
  // MLDB compares 162 pairs of cells per channel: no more bits than that.
  const int canais = v.inteiro("descriptor_channels", 1, 3);
  const int bits = v.inteiro("descriptor_size", 0, 162 * canais);
  return cv::AKAZE::create(tipo, bits, canais,
                           static_cast<float>(v.real("threshold", 1e-12, 1e6)), v.inteiro("noctaves", 1, 8),
                           v.inteiro("noctavelayers", 1, 8),
                           static_cast<cv::KAZE::DiffusivityType>(v.escolha("diffusivity", kDifusividades)));
}

const std::vector<Opcao> kOpcoesKaze = {
    {"extended", "0", "descritor de 128 em vez de 64"},
    {"upright", "0", "sem orientacao"},
    {"threshold", "0.001", "limiar da resposta do detector"},
    {"noctaves", "4", "oitavas"},
    {"noctavelayers", "4", "subniveis por oitava"},
    {"diffusivity", "pm_g2", "pm_g1, pm_g2, weickert ou charbonnier"},
};

cv::Ptr<cv::Feature2D> criaKaze(const Valores& v) {
  return cv::KAZE::create(v.sim("extended"), v.sim("upright"), static_cast<float>(v.real("threshold", 1e-12, 1e6)),
                          v.inteiro("noctaves", 1, 8), v.inteiro("noctavelayers", 1, 8),
                          static_cast<cv::KAZE::DiffusivityType>(v.escolha("diffusivity", kDifusividades)));
}

const std::vector<Opcao> kOpcoesAgast = {
    {"threshold", "10", "limiar de intensidade"},
    {"nonmaxsuppression", "1", "supressao de nao maximos"},
    {"type", "oast_9_16", "agast_5_8, agast_7_12d, agast_7_12s ou oast_9_16"},
};

cv::Ptr<cv::Feature2D> criaAgast(const Valores& v) {
  return cv::AgastFeatureDetector::create(
      v.inteiro("threshold", 0, 255), v.sim("nonmaxsuppression"),
      static_cast<cv::AgastFeatureDetector::DetectorType>(
          v.escolha("type", {{"agast_5_8", cv::AgastFeatureDetector::AGAST_5_8},
                             {"agast_7_12d", cv::AgastFeatureDetector::AGAST_7_12d},
                             {"agast_7_12s", cv::AgastFeatureDetector::AGAST_7_12s},
                             {"oast_9_16", cv::AgastFeatureDetector::OAST_9_16}})));
}

// Shi-Tomasi (gftt) and Harris (harris) are one OpenCV class; only the
// corner measure's default differs between the rows.
const std::vector<Opcao> kOpcoesGftt = {
    {"maxcorners", "1000", "cantos mantidos (0: todos)"},
    {"qualitylevel", "0.01", "fracao da melhor resposta abaixo da qual se descarta"},
    {"mindistance", "1", "distancia minima entre cantos"},
    {"blocksize", "3", "janela da matriz de segundos momentos"},
    {"gradientsize", "3", "abertura do Sobel (1, 3, 5 ou 7)"},
    {"useharrisdetector", "0", "resposta de Harris em vez de Shi-Tomasi"},
    {"k", "0.04", "k de Harris"},
};
const std::vector<Opcao> kOpcoesHarris = [] {
  std::vector<Opcao> o = kOpcoesGftt;
  for (Opcao& x : o)
    if (std::string(x.nome) == "useharrisdetector") x.padrao = "1";
  return o;
}();

cv::Ptr<cv::Feature2D> criaGftt(const Valores& v) {
  const int gradiente = v.inteiro("gradientsize", 1, 7);
  if (gradiente % 2 == 0) tvm::erro("Erro: gradientsize deve ser impar: ", std::to_string(gradiente));
  return cv::GFTTDetector::create(v.inteiro("maxcorners", 0, kMaxFeatures), v.real("qualitylevel", 1e-9, 1),
                                  v.real("mindistance", 0, 1e6), v.inteiro("blocksize", 1, 99), gradiente,
                                  v.sim("useharrisdetector"), v.real("k", -1e3, 1e3));
}

const std::vector<Opcao> kOpcoesMser = {
    {"delta", "5", "passo de limiar na estabilidade"},
    {"min_area", "60", "menor area"},
    {"max_area", "14400", "maior area"},
    {"max_variation", "0.25", "maior variacao relativa de area"},
    {"min_diversity", "0.2", "menor diversidade entre regioes aninhadas"},
    {"max_evolution", "200", "passos de evolucao (imagens em cor)"},
    {"area_threshold", "1.01", "limiar de area para reinicializar (cor)"},
    {"min_margin", "0.003", "margem minima (cor)"},
    {"edge_blur_size", "5", "abertura do borramento de bordas (cor)"},
};

cv::Ptr<cv::Feature2D> criaMser(const Valores& v) {
  const int menor = v.inteiro("min_area", 1, std::numeric_limits<int>::max());
  return cv::MSER::create(v.inteiro("delta", 1, 255), menor,
                          v.inteiro("max_area", menor, std::numeric_limits<int>::max()),
                          v.real("max_variation", 0, 1e6), v.real("min_diversity", 0, 1e6),
                          v.inteiro("max_evolution", 1, 100000), v.real("area_threshold", 0, 1e6),
                          v.real("min_margin", 0, 1e6), v.inteiro("edge_blur_size", 0, 99));
}

const std::vector<Opcao> kOpcoesBlob = {
    {"thresholdstep", "10", "passo entre limiares"},
    {"minthreshold", "50", "primeiro limiar"},
    {"maxthreshold", "220", "ultimo limiar (exclusive)"},
    {"minrepeatability", "2", "limiares em que uma mancha deve aparecer"},
    {"mindistbetweenblobs", "10", "distancia minima entre manchas"},
    {"filterbycolor", "1", "filtra pela cor"},
    {"blobcolor", "0", "cor das manchas (0 escuras, 255 claras)"},
    {"filterbyarea", "1", "filtra pela area"},
    {"minarea", "25", "menor area"},
    {"maxarea", "5000", "maior area"},
    {"filterbycircularity", "0", "filtra pela circularidade"},
    {"mincircularity", "0.8", "menor circularidade"},
    {"filterbyinertia", "1", "filtra pela razao de inercia"},
    {"mininertiaratio", "0.1", "menor razao de inercia"},
    {"filterbyconvexity", "1", "filtra pela convexidade"},
    {"minconvexity", "0.95", "menor convexidade"},
};

// A step of 0 would never reach the last threshold, and each threshold is a
// pass over the image: at most 256 of them.
cv::Ptr<cv::Feature2D> criaBlob(const Valores& v) {
  cv::SimpleBlobDetector::Params p;
  p.thresholdStep = static_cast<float>(v.real("thresholdstep", 0.01, 256));
  p.minThreshold = static_cast<float>(v.real("minthreshold", 0, 256));
  p.maxThreshold = static_cast<float>(v.real("maxthreshold", p.minThreshold, 256));
  if ((p.maxThreshold - p.minThreshold) / p.thresholdStep > 256)
    tvm::erro("Erro: blob com mais de 256 limiares entre minthreshold e maxthreshold");
  p.minRepeatability = static_cast<size_t>(v.inteiro("minrepeatability", 1, 256));
  p.minDistBetweenBlobs = static_cast<float>(v.real("mindistbetweenblobs", 0, 1e6));
  p.filterByColor = v.sim("filterbycolor");
  p.blobColor = static_cast<uchar>(v.inteiro("blobcolor", 0, 255));
  p.filterByArea = v.sim("filterbyarea");
  p.minArea = static_cast<float>(v.real("minarea", 0, 1e12));
  p.maxArea = static_cast<float>(v.real("maxarea", p.minArea, 1e12));
  p.filterByCircularity = v.sim("filterbycircularity");
  p.minCircularity = static_cast<float>(v.real("mincircularity", 0, 1e6));
  p.filterByInertia = v.sim("filterbyinertia");
  p.minInertiaRatio = static_cast<float>(v.real("mininertiaratio", 0, 1e6));
  p.filterByConvexity = v.sim("filterbyconvexity");
  p.minConvexity = static_cast<float>(v.real("minconvexity", 0, 1e6));
  return cv::SimpleBlobDetector::create(p);
}

int menorLadoOrb(const Valores& v) {
  const double lado = std::ceil(std::pow(v.real("scalefactor", 1.001, 8), v.inteiro("nlevels", 1, kMaxNiveis) - 1));
  return static_cast<int>(std::min(std::max(lado, 4.0), 1e9));
}

int menorLadoBrisk(const Valores& v) { return std::max(4, 3 << std::max(0, v.inteiro("octaves", 0, 8) - 2)); }

void verificaParaOrb(const Valores& v, const std::vector<cv::KeyPoint>& k) {
  const int niveis = v.inteiro("nlevels", 1, kMaxNiveis);
  for (size_t i = 0; i < k.size(); ++i)
    if (k[i].octave < 0 || k[i].octave >= niveis)
      naoDescreve(i, "octave " + std::to_string(k[i].octave), "0.." + std::to_string(niveis - 1), "DesOrb",
                  "KeyOrb, KeyRand, KeyFast, KeyAgast, KeyGftt ou KeyHarris");
}

namespace {

// The scale levels AKAZE and KAZE build: noctaves x noctavelayers, every
// one of the image's size. A class_id outside them trips an assertion; a
// keypoint whose octave is not its level's (class_id / noctavelayers) gets
// a row of zeros from AKAZE, and KAZE's level 0, which its detector never
// uses, a row of NaN: both stop here instead.
void verificaNivel(const Valores& v, const std::vector<cv::KeyPoint>& k, int primeiro, const char* tool,
                   const char* detector) {
  const int camadas = v.inteiro("noctavelayers", 1, 8), niveis = v.inteiro("noctaves", 1, 8) * camadas;
  const std::string faixa = std::to_string(primeiro) + ".." + std::to_string(niveis - 1);
  for (size_t i = 0; i < k.size(); ++i) {
    if (k[i].class_id < primeiro || k[i].class_id >= niveis)
      naoDescreve(i, "class_id " + std::to_string(k[i].class_id), faixa, tool, detector);
    if (k[i].octave != k[i].class_id / camadas)
      naoDescreve(i, "octave " + std::to_string(k[i].octave),
                  "class_id/" + std::to_string(camadas) + " = " + std::to_string(k[i].class_id / camadas), tool,
                  detector);
  }
}

}  // namespace

void verificaParaAkaze(const Valores& v, const std::vector<cv::KeyPoint>& k, cv::Size) {
  verificaNivel(v, k, 0, "DesAkaze", "KeyAkaze");
}

void verificaParaKaze(const Valores& v, const std::vector<cv::KeyPoint>& k, cv::Size) {
  verificaNivel(v, k, 1, "DesKaze", "KeyKaze");
}

}  // namespace algoritmos
