#pragma once
#include <kestrel/osg/Group.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(Group)
KS_FC_TYPEDEFS(Switch)

// Shows only the child whose index equals the choice; -1 shows none.
class Switch : public Group {
    KS_FIELD_CONTAINER_DECL(Switch, Group)
public:
    static constexpr BitVector ChoiceFieldMask = 1ull << 8;
    static constexpr Int32 NONE = -1;

    Int32 getChoice() const { return _choice; }
    void setChoice(Int32 choice);

private:
    Int32 _choice = NONE;
};

} // namespace osg
