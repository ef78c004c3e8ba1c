// One descriptor row per keypoint, computed over OpenCV's thread pool.
//
// Rows are independent and each is written by exactly one worker, so the
// result does not depend on the number of threads. Exceptions must not cross
// the thread pool: a failing row is recorded and, after the loop, the failure
// of the lowest row index is reported through tvm::erro. That is the error a
// serial run would have met first, whatever the thread count.
#pragma once

#include "support/erro.hpp"

#include <opencv2/core.hpp>

#include <algorithm>
#include <exception>
#include <mutex>
#include <new>
#include <string>

// Calls linha(i, rascunho) for every i in [0, n). `Rascunho` holds the
// per-worker buffers; one is built per stripe, not per row.
template <typename Rascunho, typename Linha>
void paraCadaLinha(int n, const Linha& linha) {
  if (n <= 0) return;
  std::mutex trava;
  int linhaFalha = n;
  std::string mensagem;
  auto registra = [&](int i, const std::string& texto) {
    std::lock_guard<std::mutex> guarda(trava);
    if (i < linhaFalha) {
      linhaFalha = i;
      mensagem = texto;
    }
  };
  const int faixas = std::max(1, std::min(n, cv::getNumThreads() * 4));
  cv::parallel_for_(
      cv::Range(0, n),
      [&](const cv::Range& faixa) {
        Rascunho rascunho;
        for (int i = faixa.start; i < faixa.end; ++i) {
          try {
            linha(i, rascunho);
          } catch (const tvm::Erro& e) {
            registra(i, e.what());
            return;
          } catch (const cv::Exception& e) {
            registra(i, "Erro: OpenCV: " + e.err);
            return;
          } catch (const std::bad_alloc&) {
            registra(i, "Erro: memoria insuficiente");
            return;
          } catch (const std::exception& e) {
            registra(i, std::string("Erro: ") + e.what());
            return;
          }
        }
      },
      faixas);
  if (linhaFalha < n) tvm::erro(mensagem);
}
