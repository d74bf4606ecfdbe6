// The progress of a public function.
#pragma once

#include "base/Progress.h"

namespace MIRT_ZAV
{

/// The run of an operation that an application calls by itself, open for as long as the object lives: however the
/// operation ends, the calling thread's progress tree is empty afterwards, and the next operation is a run of its own.
/// Within another operation, whose progress has a name already, the operation is a stage: nothing is set up or closed.
class OwnRun
{
public:
    /// \param setUp  names the run and registers its stages
    template <class SetUp>
    explicit OwnRun(const SetUp& setUp) : OwnRun()
    {
        if (bOwned)
            setUp(); // an exception ends in the destructor: by the first constructor the object is there already
    }
    /// A run that wasn't finished ends without a word to the subscriber.
    ~OwnRun()
    {
        if (bOwned)
            root->abandonRun();
    }
    OwnRun(const OwnRun&) = delete;
    OwnRun& operator=(const OwnRun&) = delete;

    /// At the end of an operation that succeeded: the subscriber hears 1.
    void finish() const
    {
        if (bOwned)
            root->finishRun();
    }

private:
    OwnRun() : root(getThreadProgress()), bOwned(root->getName() == "empty") {}

    Progress* const root;
    const bool bOwned;
};

} // namespace MIRT_ZAV
