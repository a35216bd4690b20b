/// What a service owes with the complete answer: every signal of every satellite that can be
/// answered, in messages of the kind that brought it.
#pragma once

#include "predict.h"
#include "runs.h"

namespace ref {

class CompletePredictor : public Predictor {
public:
    explicit CompletePredictor(Expectation e);
    long others() const override { return runs_.refusedEnds(); }

private:
    void message(const Frame& f, std::vector<Expected>& out) override;
    void forgetEpoch() override { runs_.newConnection(); }
    Expected answer(Run run);

    Runs runs_;
    std::optional<int> spoke_; // who spoke last of itself before the stream had a station
};

} // namespace ref
