#include <velacamplix/observable.hpp>

namespace pbamplix {

template <class Term>
void prune_I_ops(std::vector<Term>& terms) {
    for (Term& term : terms) {
        for (std::size_t p = term.op.size(); p-- > 0;) {
            if (term.op[p] != 'I') continue;
            // Cuts the whole rest of the string, on purpose: operators behind an identity are dropped, but their
            // qubits stay listed. Hosts rely on it; pinned by terms.test.cpp.
            term.op.erase(p);
            if (p < term.qubits.size()) term.qubits.erase(term.qubits.begin() + static_cast<std::ptrdiff_t>(p));
        }
    }
}

template void prune_I_ops(std::vector<SimpleTerm<float>>&);
template void prune_I_ops(std::vector<SimpleTerm<double>>&);

}  // namespace pbamplix
