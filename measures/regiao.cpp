#include "measures/regiao.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <immintrin.h>

namespace measures {

namespace {

// The half axes of the ellipse: 1/sqrt of the eigenvalues of [a b; b c],
// taken as the roots of t^2 - (a + c) t + (ac - b^2), smaller root first.
void eixos(double a, double c, double det, float& eixo1, float& eixo2) {
  const double p = -(a + c);
  double d = p * p - 4 * det;
  double t1, t2;
  if (d < 0) {
    t1 = t2 = 0;
  } else if (d > 0) {
    d = std::sqrt(d);
    t1 = (-p - d) * 0.5;
    t2 = (-p + d) * 0.5;
    if (t1 > t2) std::swap(t1, t2);
  } else {
    t1 = t2 = -p / 2;
  }
  eixo1 = static_cast<float>(1 / std::sqrt(t1));
  eixo2 = static_cast<float>(1 / std::sqrt(t2));
}

// Inverse of the symmetric 2x2 [m00 m01; m10 m11] by its determinant; the
// zero matrix when singular (OpenCV's rule for cv::invert).
cv::Matx22d inversa22(const cv::Matx22d& m) {
  double d = m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0);
  if (d == 0) return cv::Matx22d::zeros();
  d = 1. / d;
  return cv::Matx22d(m(1, 1) * d, -m(0, 1) * d, -m(1, 0) * d, m(0, 0) * d);
}

// Sums of two products, as any 2x2 product computes them.
cv::Matx22d produto(const cv::Matx22d& x, const cv::Matx22d& y) {
  cv::Matx22d r;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) r(i, j) = x(i, 0) * y(0, j) + x(i, 1) * y(1, j);
  return r;
}

// A float below 1 after rounding: (float)v < 1 exactly when v < 1 - 2^-25,
// since values from there up round to 1.0f (ties to even).
constexpr double kAbaixoDeUm = 1.0 - 1.0 / (1 << 25);

// The grid's points inside both ellipses and inside either, column by
// column. The expressions are the reference's, term by term, so the counts
// are too: (s + t y) + q, with s and t the column's terms and q = (c y) y.
struct Coluna {
  float x0, passo, dx;    // column i at x0 + i * passo in r1's frame, dx the shift to r2's
  double a1, b1, a2, b2;  // x-terms of both ellipses
};
struct Grade {
  std::vector<double> y1, q1, y2, q2;
};
struct TermosColuna {
  double s1, t1, s2, t2;
};
TermosColuna termos(const Coluna& col, int i) {
  const float x1 = col.x0 + i * col.passo;
  const float x2 = x1 - col.dx;
  return {col.a1 * x1 * x1, 2 * col.b1 * x1, col.a2 * x2 * x2, 2 * col.b2 * x2};
}

// Rows [j0, j1) of one column, one at a time.
void contaLinhas(const TermosColuna& t, const Grade& g, int j0, int j1, int& ambos, int& algum) {
  for (int j = j0; j < j1; ++j) {
    const bool d1 = (t.s1 + t.t1 * g.y1[j]) + g.q1[j] < kAbaixoDeUm;
    const bool d2 = (t.s2 + t.t2 * g.y2[j]) + g.q2[j] < kAbaixoDeUm;
    ambos += d1 & d2;
    algum += d1 | d2;
  }
}

void contaGradeSimples(const Coluna& col, int colunas, const Grade& g, int& ambos, int& algum) {
  for (int i = 0; i <= colunas; ++i) contaLinhas(termos(col, i), g, 0, static_cast<int>(g.y1.size()), ambos, algum);
}

// The grid counter of one width of vector instructions: whole groups of
// rows in V (GCC's vector type, whose + and * take a double as a whole vector
// of it), the rows left over one at a time. Comparisons give bit masks,
// counted by popcount. Each lane computes the scalar expression in the same
// order, so the counts are the scalar path's.
template <class Ops>
void contaGradeVetor(const Coluna& col, int colunas, const Grade& g, int& ambos, int& algum) {
  using V = typename Ops::V;
  constexpr int largura = sizeof(V) / sizeof(double);
  const int m = static_cast<int>(g.y1.size());
  const int inteiras = m - m % largura;
  for (int i = 0; i <= colunas; ++i) {
    const TermosColuna t = termos(col, i);
    for (int j = 0; j < inteiras; j += largura) {
      const V v1 = (t.s1 + t.t1 * Ops::carrega(&g.y1[j])) + Ops::carrega(&g.q1[j]);
      const V v2 = (t.s2 + t.t2 * Ops::carrega(&g.y2[j])) + Ops::carrega(&g.q2[j]);
      const unsigned d1 = Ops::abaixoDeUm(v1), d2 = Ops::abaixoDeUm(v2);
      ambos += __builtin_popcount(d1 & d2);
      algum += __builtin_popcount(d1 | d2);
    }
    contaLinhas(t, g, inteiras, m, ambos, algum);
  }
}

// GCC compiles a template with the target in force where it is instantiated:
// each path is instantiated explicitly under its own pragma, before any use.
// contaGradeDe calls a path only where the processor has it.
#pragma GCC push_options
#pragma GCC target("avx512f,popcnt")
struct Avx512 {
  using V = __m512d;
  static V carrega(const double* p) { return _mm512_loadu_pd(p); }
  static unsigned abaixoDeUm(V v) { return _mm512_cmp_pd_mask(v, _mm512_set1_pd(kAbaixoDeUm), _CMP_LT_OQ); }
};
template void contaGradeVetor<Avx512>(const Coluna&, int, const Grade&, int&, int&);
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,popcnt")
struct Avx2 {
  using V = __m256d;
  static V carrega(const double* p) { return _mm256_loadu_pd(p); }
  static unsigned abaixoDeUm(V v) {
    return _mm256_movemask_pd(_mm256_cmp_pd(v, _mm256_set1_pd(kAbaixoDeUm), _CMP_LT_OQ));
  }
};
template void contaGradeVetor<Avx2>(const Coluna&, int, const Grade&, int&, int&);
#pragma GCC pop_options

using ContaGrade = void (*)(const Coluna&, int, const Grade&, int&, int&);
ContaGrade contaGradeDe(Vetores v) {
  switch (v) {
    case Vetores::escalar:
      return contaGradeSimples;
    case Vetores::avx2:
      return contaGradeVetor<Avx2>;
    case Vetores::avx512:
      return contaGradeVetor<Avx512>;
    case Vetores::melhor:
      break;
  }
  return __builtin_cpu_supports("avx512f") ? contaGradeVetor<Avx512>
         : __builtin_cpu_supports("avx2")  ? contaGradeVetor<Avx2>
                                           : contaGradeSimples;
}
const ContaGrade contaGradeMelhor = contaGradeDe(Vetores::melhor);

}  // namespace

Regiao::Regiao(cv::Point2f centro_, double a_, double b_, double c_) : centro(centro_), a(a_), b(b_), c(c_) {
  const double det = a * c - b * b;
  eixos(a, c, det, eixo1, eixo2);
  caixaX = static_cast<float>(std::sqrt(c / det));
  caixaY = static_cast<float>(std::sqrt(a / det));
}

Regiao regiaoDe(const cv::KeyPoint& k) {
  const float raio = k.size / 2;
  const float f = 1.f / (raio * raio);
  return Regiao(k.pt, f, 0, f);
}

Regiao projeta(const Regiao& r, const cv::Matx33d& H) {
  const double x = r.centro.x, y = r.centro.y;
  const double p1 = H(0, 0) * x + H(0, 1) * y + H(0, 2);
  const double p2 = H(1, 0) * x + H(1, 1) * y + H(1, 2);
  const double p3 = H(2, 0) * x + H(2, 1) * y + H(2, 2);
  cv::Point2f centro(FLT_MAX, FLT_MAX);
  if (p3) {
    const double w = 1. / p3;
    centro = cv::Point2f(static_cast<float>(p1 * w), static_cast<float>(p2 * w));
  }
  // The Jacobian of the homography at the centre.
  cv::Matx22d J = cv::Matx22d::all(DBL_MAX);
  if (p3) {
    const double p3q = p3 * p3;
    J = cv::Matx22d(H(0, 0) / p3 - p1 * H(2, 0) / p3q, H(0, 1) / p3 - p1 * H(2, 1) / p3q,
                    H(1, 0) / p3 - p2 * H(2, 0) / p3q, H(1, 1) / p3 - p2 * H(2, 1) / p3q);
  }
  // The ellipse matrix M maps to (J M^-1 J^T)^-1.
  const cv::Matx22d m = inversa22(produto(produto(J, inversa22(cv::Matx22d(r.a, r.b, r.b, r.c))), J.t()));
  return Regiao(centro, m(0, 0), m(0, 1), m(1, 1));
}

bool dentro(const Regiao& r, cv::Size imagem) {
  return r.centro.x + r.caixaX < imagem.width && r.centro.x - r.caixaX > 0 && r.centro.y + r.caixaY < imagem.height &&
         r.centro.y - r.caixaY > 0;
}

Referencia::Referencia(const Regiao& r) : r1(r) {
  const float raio = std::sqrt(r.eixo1 * r.eixo2);
  const float escala = 30.f / raio;
  alcance = raio * 4;
  fator = 1.f / (escala * escala);
  escalada = Regiao(r.centro, fator * r.a, fator * r.b, fator * r.c);
}

namespace {

float sobreposicao(const Referencia& ref, const Regiao& r2t, Grade& g, ContaGrade contaGrade) {
  const cv::Point2f diff = r2t.centro - ref.r1.centro;
  if (!(std::sqrt(double(diff.x) * diff.x + double(diff.y) * diff.y) < ref.alcance)) return 0;
  const Regiao& e1 = ref.escalada;
  const double a2 = ref.fator * r2t.a, b2 = ref.fator * r2t.b, c2 = ref.fator * r2t.c;
  const double det2 = a2 * c2 - b2 * b2;
  const float caixa2x = static_cast<float>(std::sqrt(c2 / det2));
  const float caixa2y = static_cast<float>(std::sqrt(a2 / det2));
  // Boxes apart (by more than rounding could blur): no grid point lies in
  // both ellipses, the overlap is 0 whatever the union holds.
  const double folga = 1e-6 * (1 + std::abs(diff.x) + std::abs(diff.y) + e1.caixaX + e1.caixaY + caixa2x + caixa2y);
  if (std::abs(diff.x) > e1.caixaX + caixa2x + folga || std::abs(diff.y) > e1.caixaY + caixa2y + folga) return 0;

  // The union of both bounding boxes in whole pixels, r1's centre at 0.
  const int maxx = static_cast<int>(std::ceil(std::max(e1.caixaX, diff.x + caixa2x)));
  const int minx = static_cast<int>(std::floor(std::min(-e1.caixaX, diff.x - caixa2x)));
  const int maxy = static_cast<int>(std::ceil(std::max(e1.caixaY, diff.y + caixa2y)));
  const int miny = static_cast<int>(std::floor(std::min(-e1.caixaY, diff.y - caixa2y)));
  const int menor = std::min(maxx - minx, maxy - miny);
  const float passo = static_cast<float>(menor) / 50.f;
  // Degenerate boxes (never met with positive sizes): nothing to count.
  if (!(miny < maxy) || !(passo > FLT_EPSILON)) return 0;
  const int colunas = static_cast<int>(std::floor(static_cast<float>(maxx - minx) / passo));

  // The rows of the grid, stepped in float as the reference does.
  g.y1.clear();
  g.q1.clear();
  g.y2.clear();
  g.q2.clear();
  for (float y = static_cast<float>(miny); y <= static_cast<float>(maxy); y += passo) {
    const float yb = y - diff.y;
    g.y1.push_back(y);
    g.q1.push_back(e1.c * y * y);
    g.y2.push_back(yb);
    g.q2.push_back(c2 * yb * yb);
  }
  int ambos = 0, algum = 0;
  const Coluna col{static_cast<float>(minx), passo, diff.x, e1.a, e1.b, a2, b2};
  contaGrade(col, colunas, g, ambos, algum);
  return ambos > 0 ? static_cast<float>(ambos) / static_cast<float>(algum) : 0.f;
}

}  // namespace

bool disponivel(Vetores v) {
  switch (v) {
    case Vetores::avx2:
      return __builtin_cpu_supports("avx2");
    case Vetores::avx512:
      return __builtin_cpu_supports("avx512f");
    default:
      return true;
  }
}

float sobreposicao(const Referencia& r1, const Regiao& r2t, Vetores v) {
  Grade g;
  return sobreposicao(r1, r2t, g, contaGradeDe(v));
}

std::vector<Par> correspondencias(const std::vector<Regiao>& regioes1, const std::vector<Regiao>& regioes2t,
                                  float minima) {
  std::vector<Par> pares;
  if (regioes1.empty() || regioes2t.empty()) return pares;

  // Regions of image 2 in square cells, so each region of image 1 looks only
  // at the cells its search radius reaches.
  float xmin = FLT_MAX, ymin = FLT_MAX, xmax = -FLT_MAX, ymax = -FLT_MAX, alcanceMedio = 0;
  for (const Regiao& r : regioes2t) {
    xmin = std::min(xmin, r.centro.x), xmax = std::max(xmax, r.centro.x);
    ymin = std::min(ymin, r.centro.y), ymax = std::max(ymax, r.centro.y);
  }
  for (const Regiao& r : regioes1) alcanceMedio += Referencia(r).alcance / regioes1.size();
  const float lado = std::max(4.f, alcanceMedio);
  const int colunas = std::min(4096, static_cast<int>((xmax - xmin) / lado) + 1);
  const int linhas = std::min(4096, static_cast<int>((ymax - ymin) / lado) + 1);
  const auto celula = [&](float v, float v0, int n) {
    const float q = (v - v0) / lado;
    return q >= 1 ? std::min(static_cast<int>(std::min(q, 1e6f)), n - 1) : 0;
  };
  // Cell c holds the regions inicio[c] .. inicio[c + 1] - 1 of `porCelula`, in index order.
  std::vector<int> inicio(colunas * linhas + 1, 0), porCelula(regioes2t.size());
  for (const Regiao& r : regioes2t) ++inicio[celula(r.centro.y, ymin, linhas) * colunas + celula(r.centro.x, xmin, colunas) + 1];
  for (size_t c = 1; c < inicio.size(); ++c) inicio[c] += inicio[c - 1];
  {
    std::vector<int> proximo(inicio.begin(), inicio.end() - 1);
    for (int i = 0; i < static_cast<int>(regioes2t.size()); ++i) {
      const Regiao& r = regioes2t[i];
      porCelula[proximo[celula(r.centro.y, ymin, linhas) * colunas + celula(r.centro.x, xmin, colunas)]++] = i;
    }
  }

  // Candidates of each region of image 1 in index order, so the pairs enter
  // the sort in the reference's order and ties fall as they do there.
  std::vector<std::vector<Par>> porRegiao(regioes1.size());
  cv::parallel_for_(cv::Range(0, static_cast<int>(regioes1.size())), [&](const cv::Range& faixa) {
    Grade g;
    std::vector<int> perto;
    for (int i1 = faixa.start; i1 < faixa.end; ++i1) {
      const Referencia ref(regioes1[i1]);
      const cv::Point2f c = ref.r1.centro;
      // One pixel of slack: the exact distance test is inside sobreposicao.
      const float r = ref.alcance + 1;
      perto.clear();
      for (int cy = celula(c.y - r, ymin, linhas); cy <= celula(c.y + r, ymin, linhas); ++cy)
        for (int cx = celula(c.x - r, xmin, colunas); cx <= celula(c.x + r, xmin, colunas); ++cx)
          for (int k = inicio[cy * colunas + cx]; k < inicio[cy * colunas + cx + 1]; ++k) {
            const cv::Point2f d = regioes2t[porCelula[k]].centro - c;
            if (std::abs(d.x) <= r && std::abs(d.y) <= r) perto.push_back(porCelula[k]);
          }
      std::sort(perto.begin(), perto.end());
      for (int i2 : perto) {
        const float s = sobreposicao(ref, regioes2t[i2], g, contaGradeMelhor);
        if (s > 0 && s >= minima) porRegiao[i1].push_back({s, i1, i2});
      }
    }
  });
  for (auto& v : porRegiao) pares.insert(pares.end(), v.begin(), v.end());

  std::sort(pares.begin(), pares.end(), [](const Par& p, const Par& q) { return p.sobreposicao > q.sobreposicao; });
  std::vector<char> usado1(regioes1.size(), 0), usado2(regioes2t.size(), 0);
  size_t n = 0;
  for (const Par& p : pares)
    if (!usado1[p.i1] && !usado2[p.i2]) {
      usado1[p.i1] = usado2[p.i2] = 1;
      pares[n++] = p;
    }
  pares.resize(n);
  return pares;
}

}  // namespace measures
