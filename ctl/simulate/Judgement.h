#pragma once

#include "ctl/simulate/Summary.h"

/// Judgement: what a run says about the service, in one of five answers. Text, JSON, page and exit
/// status all take it from here.

namespace ctl::simulate {

enum class Answer {
    right,     ///< values too
    formRight, ///< replies are complete, in order and well formed; their values are not known
    missed,    ///< what came at rovers was right, and did not all come
    nothing,   ///< no observation came back, and none was due
    wrong,
};

struct Judgement {
    Answer answer = Answer::nothing;
    long wrong = 0;                   ///< how much
    std::string words;                ///< in one line
    std::vector<std::string> causes;  ///< of what is wrong: the likely ones before the rest
    std::vector<std::string> remarks; ///< what nobody did wrong, and an operator wants to know
};

Judgement judgementOf(const Totals& t);
const char* name(Answer answer);
/// 0 right, also in form alone; 1 wrong, missed, or nothing to judge.
int exitStatus(Answer answer);

} // namespace ctl::simulate
