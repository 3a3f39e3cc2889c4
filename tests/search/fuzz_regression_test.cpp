// Positions found by the UCI fuzz target in fuzz/, fed through the move picker.
#include <gtest/gtest.h>

#include "board/movegen.h"
#include "board/tables.h"
#include "board/text.h"
#include "search/history.h"
#include "search/picker.h"

namespace {

TEST(FuzzRegression, QuietQueenPromotionComesFirst) {
    // From and to unattacked, a queen promotion gets both promotion bonuses on top of the safety
    // bit. The sum overflowed the 32-bit score (the sanitizer build stops there) and wrapped
    // negative, which handed the promotion out last instead of first.
    Position p;
    constructPosition(p);
    ASSERT_NE(parseFen(p, "4k3/P7/8/8/8/8/8/4K3 w - - 0 1"), nullptr);
    MoveEntry arena[MaxMovesPerPosition];
    MoveEntry* top = arena;
    HistoryTable history;
    history.reset();
    MoveGenerator gen(&top, p, &history, GenAll, NoMove, nullptr, nullptr);
    const MoveEntry* first = gen.next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->move,
              makeMoveValue(squareFromLetters('a', '7'), squareFromLetters('a', '8'), Pawn, Queen));
    int handedOut = 1;
    while (gen.next()) ++handedOut;
    EXPECT_EQ(handedOut, gen.count());
}

}  // namespace
