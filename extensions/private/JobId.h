#ifndef OSAL_KIT_EXTENSIONS_PRIVATE_JOBID_H
#define OSAL_KIT_EXTENSIONS_PRIVATE_JOBID_H

// The job queue's id counting, on its own so that its wrap-around can be checked
// without four billion insertions.

namespace PAL {
namespace JobId {

/// The id after `last`: 1 to 4294967295, then 1 again; never 0, which marks a refused job.
inline unsigned int next(unsigned int last)
{
    const unsigned int id = last + 1u;
    return id == 0u ? 1u : id;
}

} // namespace JobId
} // namespace PAL

#endif
