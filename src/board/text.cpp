#include "board/text.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "board/makemove.h"
#include "board/movegen.h"
#include "board/tables.h"

namespace {

const char CoordinateLetters[] = "- nbrqk";
const char EnglishLetters[] = "- NBRQK";
const char GermanLetters[] = "- SLTDK";

bool isBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

const char* skipBlanks(const char* s) {
    while (*s && isBlank(*s)) ++s;
    return s;
}

const char* skipField(const char* s) {
    while (*s && !isBlank(*s)) ++s;
    return skipBlanks(s);
}

int kingFile(const SideState& side) {
    return side.pieces[King] ? fileOf(firstSquare(side.pieces[King])) : 4;
}

// Files, east (or west) of `kingSquareFile`, on which two rooks of either colour stand.
Bitboard filesWithTwoRooks(Bitboard rooks, int kingSquareFile, bool east) {
    Bitboard files = 0;
    for (int f = 0; f < 8; ++f) {
        if (east ? f <= kingSquareFile : f >= kingSquareFile) continue;
        if (popcount(rooks & FileMask[f]) >= 2) files |= FileMask[f];
    }
    return files;
}

int pieceKindOfLetter(char c) {
    switch (c) {
        case 'B':
        case 'L':
            return Bishop;
        case 'D':
        case 'Q':
            return Queen;
        case 'K':
            return King;
        case 'N':
        case 'S':
            return Knight;
        case 'R':
        case 'T':
            return Rook;
        default:
            return None;
    }
}

char* writeSquare(char* out, int square) {
    *out++ = static_cast<char>('a' + fileOf(square));
    *out++ = static_cast<char>('8' - rowOf(square));
    return out;
}

// Men of the moving kind that could reach `to`, as the algebraic forms see them.
Bitboard reachingMen(const Position& p, const SideState& us, int kind, int from, int to) {
    switch (kind) {
        case Knight:
            return KnightMask[to] & us.pieces[Knight];
        case Bishop:
            return bishopAttacks(to, p.occupied) & us.pieces[Bishop];
        case Rook:
            return rookAttacks(to, p.occupied) & us.pieces[Rook];
        case Queen:
            return queenAttacks(to, p.occupied) & us.pieces[Queen];
        case King:
            return us.pieces[King];
        default:
            return squareBit(from);
    }
}

bool endsWith(const char* text, int length, const char* tail) {
    const int n = static_cast<int>(std::strlen(tail));
    return length >= n && std::memcmp(text + length - n, tail, n) == 0;
}

bool isAnnotation(char c) {
    return c == '!' || c == '?';
}

}  // namespace

const char* parseFen(Position& p, const char* text) {
    for (SideState& side : p.sides) {
        for (Bitboard& b : side.pieces) b = 0;
        for (int8_t& c : side.pieceCount) c = 0;
    }
    p.occupied = 0;
    p.lastMoveMask = 0;
    p.whiteToMove = 0;
    p.epSquare = -1;
    p.castling = 0;
    const char* s = skipBlanks(text);

    static const char PieceLetters[] = "PNBRQKpnbrqk";
    int column = 0;
    char rank = '8';
    for (; *s && !isBlank(*s); ++s) {
        const char c = *s;
        if (c < 32 || c > 'r') return nullptr;
        if (c == '/') {
            --rank;
            if (column <= 7 || rank < '0') return nullptr;
            column = 0;
        } else if (c >= '1' && c <= '8') {
            column += c - '0';
            if (column > 8) return nullptr;
        } else if (const char* letter = std::strchr(PieceLetters, c); letter && c != 0) {
            if (column > 7) return nullptr;
            const int index = static_cast<int>(letter - PieceLetters);
            SideState& side = p.sides[index < 6 ? 0 : 1];
            side.pieces[index % 6 + 1] |=
                squareBit(squareFromLetters(static_cast<char>('A' + column), rank));
            ++column;
        } else {
            return nullptr;
        }
    }

    s = skipBlanks(s);
    if (*s == 'w' || *s == 'W')
        p.whiteToMove = 1;
    else if (*s == 'b' || *s == 'B')
        p.whiteToMove = 0;
    else
        return nullptr;
    s = skipField(s);

    Bitboard shortFiles = ~Bitboard{0};
    Bitboard longFiles = ~Bitboard{0};
    p.fenFileLetters = 0;
    if (*s && *s != '-') {
        char previous = 0;
        for (; *s && !isBlank(*s); previous = *s, ++s) {
            const char c = *s;
            switch (c) {
                case 'K':
                    p.castling |= CastleWhiteShort;
                    p.fenFileLetters = 0;
                    continue;
                case 'Q':
                    p.castling |= CastleWhiteLong;
                    p.fenFileLetters = 0;
                    continue;
                case 'k':
                    p.castling |= CastleBlackShort;
                    p.fenFileLetters = 0;
                    continue;
                case 'q':
                    p.castling |= CastleBlackLong;
                    p.fenFileLetters = 0;
                    continue;
                default:
                    break;
            }
            const char lower = static_cast<char>(c | 0x20);
            if (!std::isalpha(static_cast<unsigned char>(c)) || lower < 'a' || lower > 'h')
                return nullptr;
            const int file = lower - 'a';
            if (previous == 'K' || previous == 'k') {
                shortFiles = FileMask[file];
                p.fenFileLetters = 0;
            } else if (previous == 'Q' || previous == 'q') {
                longFiles = FileMask[file];
                p.fenFileLetters = 0;
            } else {
                const bool white = c < 'a';
                p.fenFileLetters = 1;
                if (file <= kingFile(p.sides[white ? 0 : 1])) {
                    p.castling |= white ? CastleWhiteLong : CastleBlackLong;
                    longFiles = FileMask[file];
                } else {
                    p.castling |= white ? CastleWhiteShort : CastleBlackShort;
                    shortFiles = FileMask[file];
                }
            }
        }
    }

    const bool whiteRights = (p.castling & 3) != 0;
    const bool blackRights = (p.castling & 12) != 0;
    if (whiteRights && blackRights && (p.sides[0].pieces[King] >> 56) != p.sides[1].pieces[King])
        return nullptr;
    const Bitboard allRooks = p.sides[0].pieces[Rook] | p.sides[1].pieces[Rook];
    const int whiteKingFile = kingFile(p.sides[0]);
    if ((p.castling & CastleWhiteShort) && (p.castling & CastleBlackShort))
        shortFiles &= filesWithTwoRooks(allRooks, whiteKingFile, true);
    if ((p.castling & CastleWhiteLong) && (p.castling & CastleBlackLong))
        longFiles &= filesWithTwoRooks(allRooks, whiteKingFile, false);
    setCastlingGeometry(p, shortFiles, longFiles);

    // Chess960 unless every right that found its rook is a classical one.
    bool classical = true;
    const SideState& w = p.sides[0];
    const SideState& b = p.sides[1];
    if ((p.castling & CastleWhiteShort) && w.shortRookFrom >= 0 && w.shortRookFrom != 63)
        classical = false;
    if ((p.castling & CastleWhiteLong) && w.longRookFrom >= 0 && w.longRookFrom != 56)
        classical = false;
    if ((p.castling & CastleBlackShort) && b.shortRookFrom >= 0 && b.shortRookFrom != 7)
        classical = false;
    if ((p.castling & CastleBlackLong) && b.longRookFrom >= 0 && b.longRookFrom != 0)
        classical = false;
    if (whiteRights && w.pieces[King] != squareBit(60)) classical = false;
    if (blackRights && b.pieces[King] != squareBit(4)) classical = false;
    p.chess960 = classical ? 0 : 1;

    s = skipField(s);
    if (*s == '-') {
        ++s;
    } else if (*s) {
        const char letter = static_cast<char>(*s | 0x20);
        if (letter < 'a' || letter > 'h') return nullptr;
        const char digit = s[1];
        if (digit != '3' && digit != '6') return nullptr;
        if ((digit == '6') != (p.whiteToMove == 1)) return nullptr;
        const int square = squareFromLetters(letter, digit);
        const int pushed = p.whiteToMove ? square + 8 : square - 8;
        const int origin = p.whiteToMove ? square - 8 : square + 8;
        const SideState& mover = p.sides[p.whiteToMove ? 1 : 0];
        Bitboard men = 0;
        for (const SideState& side : p.sides)
            for (int kind = Pawn; kind <= King; ++kind) men |= side.pieces[kind];
        // A field that names no double step just made is ignored.
        if ((mover.pieces[Pawn] & squareBit(pushed)) &&
            !(men & (squareBit(square) | squareBit(origin)))) {
            p.epSquare = static_cast<int8_t>(square);
            p.lastMoveMask = squareBit(square - 8) | squareBit(square + 8);
        }
        s += 2;
    }
    if (!validatePosition(p)) return nullptr;
    return s;
}

bool setGameFromFen(Game& g, const char* text) {
    const char* rest = parseFen(g.position, text);
    if (!rest) return false;
    int halfmove = 0, fullmove = 0;
    std::sscanf(rest, "%d %d", &halfmove, &fullmove);
    if (halfmove < 0 || halfmove > 99) {
        g.historyCount = 1;
    } else {
        g.historyCount = halfmove + 1;
        std::memset(static_cast<void*>(g.history), 0, sizeof(PositionFingerprint) * halfmove);
    }
    g.history[g.historyCount - 1] = fingerprint(g.position);
    return true;
}

void writeFen(const Position& p, char* buffer) {
    static const char Letters[] = "PNBRQKpnbrqk";
    char* out = buffer;
    for (int row = 0; row < 8; ++row) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const Bitboard bit = squareBit(row * 8 + file);
            char letter = 0;
            for (int i = 0; i < 12 && !letter; ++i)
                if (p.sides[i / 6].pieces[i % 6 + 1] & bit) letter = Letters[i];
            if (!letter) {
                ++empty;
                continue;
            }
            if (empty) *out++ = static_cast<char>('0' + empty);
            empty = 0;
            *out++ = letter;
        }
        if (empty) *out++ = static_cast<char>('0' + empty);
        if (row < 7) *out++ = '/';
    }
    *out++ = ' ';
    *out++ = p.whiteToMove ? 'w' : 'b';
    *out++ = ' ';
    if (!(p.castling & 15)) *out++ = '-';
    for (int colour = 0; colour < 2; ++colour) {
        const SideState& side = p.sides[colour];
        const Bitboard rooks = side.pieces[Rook];
        const uint8_t shortRight = colour == 0 ? CastleWhiteShort : CastleBlackShort;
        const uint8_t longRight = colour == 0 ? CastleWhiteLong : CastleBlackLong;
        if ((p.castling & shortRight) && side.shortRookFrom >= 0) {
            *out++ = colour == 0 ? 'K' : 'k';
            const int r = side.shortRookFrom;
            Bitboard further = 0;
            for (int s = r + 1; s < (r | 7) + 1; ++s) further |= squareBit(s);
            if (rooks & further) *out++ = static_cast<char>('a' + fileOf(r));
        }
        if ((p.castling & longRight) && side.longRookFrom >= 0) {
            *out++ = colour == 0 ? 'Q' : 'q';
            const int r = side.longRookFrom;
            Bitboard further = 0;
            for (int s = r & ~7; s < r; ++s) further |= squareBit(s);
            if (rooks & further) *out++ = static_cast<char>('a' + fileOf(r));
        }
    }
    *out++ = ' ';
    if (p.epSquare < 0) {
        *out++ = '-';
    } else {
        *out++ = static_cast<char>('a' + fileOf(p.epSquare));
        *out++ = p.whiteToMove ? '6' : '3';
    }
    *out = 0;
}

void writeFullFen(const Game& g, char* buffer) {
    writeFen(g.position, buffer);
    const size_t n = std::strlen(buffer);
    std::snprintf(buffer + n, 32, " %d %d", g.historyCount - 1, g.historyCount / 2 + 1);
}

void setChess960Position(Position& p, unsigned number) {
    p.fenFileLetters = 0;
    unsigned n = number % 960;
    char row[9] = "        ";
    row[2 * (n & 3) + 1] = 'b';
    n >>= 2;
    row[2 * (n & 3)] = 'b';
    n >>= 2;
    auto freePlace = [&row](unsigned index) {
        for (int i = 0; i < 8; ++i)
            if (row[i] == ' ' && index-- == 0) return i;
        return 7;
    };
    row[freePlace(n % 6)] = 'q';
    n /= 6;
    static const int KnightPlaces[10][2] = {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {1, 2},
                                            {1, 3}, {1, 4}, {2, 3}, {2, 4}, {3, 4}};
    const int first = freePlace(KnightPlaces[n][0]);
    const int second = freePlace(KnightPlaces[n][1]);
    row[first] = 'n';
    row[second] = 'n';
    const char rest[] = "rkr";
    for (int i = 0, k = 0; i < 8; ++i)
        if (row[i] == ' ') row[i] = rest[k++];
    char upper[9];
    for (int i = 0; i < 9; ++i)
        upper[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(row[i])));
    char fen[100];
    std::snprintf(fen, sizeof fen, "%s/pppppppp/8/8/8/8/PPPPPPPP/%s w KQkq - 0 1", row, upper);
    parseFen(p, fen);
}

void setGameChess960(Game& g, unsigned number) {
    setChess960Position(g.position, number);
    g.historyCount = 1;
    g.history[0] = fingerprint(g.position);
}

char* writeMove(Position& p, Move move, int style, char* buffer) {
    const SideState& us = p.toMove();
    const SideState& them = p.notToMove();
    const int from = moveFrom(move);
    const int to = moveTo(move);
    const int kind = moveKind(move);
    const int promotion = movePromotion(move);
    char* out = buffer;
    const char* letters = style == StyleEnglish ? EnglishLetters : GermanLetters;

    const bool enPassant =
        kind == Pawn && fileOf(from) != fileOf(to) && !(p.occupied & squareBit(to));
    const bool capture = (them.men() & squareBit(to)) != 0 || enPassant;

    if (style == StyleCoordinates) {
        out = writeSquare(out, from);
    } else {
        if (kind >= Knight && kind <= King) *out++ = letters[kind];
        const Bitboard candidates = reachingMen(p, us, kind, from, to);
        const bool several = popcount(candidates) > 1;
        if (several || kind != Pawn || capture) {
            if (several || kind == Pawn) {
                char mark = ' ';
                for (int i = 0; i < 8; ++i) {
                    if (fileOf(from) == i && popcount(candidates & FileMask[i]) == 1) {
                        mark = static_cast<char>('a' + i);
                        break;
                    }
                    const Bitboard rank = RankOne >> (8 * i);
                    if (rowOf(from) == 7 - i && popcount(candidates & rank) == 1)
                        mark = static_cast<char>('1' + i);
                }
                if (mark == ' ')
                    out = writeSquare(out, from);  // neither file nor rank alone tells it
                else
                    *out++ = mark;
            }
            if (capture) *out++ = 'x';
        }
    }
    out = writeSquare(out, to);

    if (kind == Pawn) {
        if (promotion) {
            const char* promotionLetters =
                style == StyleCoordinates ? CoordinateLetters
                                          : (style == StyleGerman ? GermanLetters : EnglishLetters);
            *out++ = promotionLetters[promotion];
        }
        if (enPassant) {
            if (style != StyleGerman) {
                *out = 0;
                return buffer;
            }
            std::memcpy(out, " e.p.", 5);
            out += 5;
        }
    } else if (kind == King && (us.pieces[Rook] & squareBit(to)) && !p.fenFileLetters) {
        const bool shortSide = to == us.shortRookFrom;
        if (style == StyleCoordinates && !p.chess960) {
            buffer[2] = shortSide ? 'g' : 'c';
            buffer[4] = 0;
            return buffer;
        }
        const char* text = style == StyleCoordinates ? (shortSide ? "O-O" : "O-O-O")
                                                     : (shortSide ? "0-0" : "0-0-0");
        std::strcpy(buffer, text);
        out = buffer + std::strlen(text);
        if (style == StyleCoordinates) return buffer;
    }

    if (style == StyleGerman) {
        UndoRecord u;
        beginUndo(u, p);
        if (makeLegal(p, move, u)) {
            if (sideToMoveInCheck(p)) *out++ = hasNoLegalMove(p, nullptr) ? '#' : '+';
            undoMove(u);
        }
    }
    *out = 0;
    return buffer;
}

bool parseMove(Position& p, const char* text, Move& move, int format) {
    char buffer[64];
    text = skipBlanks(text);
    std::strncpy(buffer, text, sizeof buffer - 1);
    buffer[sizeof buffer - 1] = 0;
    int length = static_cast<int>(std::strlen(buffer));

    bool checkClaim = false, mateClaim = false, epClaim = false, annotated = false;
    while (length > 1) {
        const char last = buffer[length - 1];
        if (last >= '1' && last <= '8') break;
        if (isBlank(last)) {
            --length;
        } else if ((length > 2 && endsWith(buffer, length, "++")) || last == '#') {
            if (checkClaim || mateClaim) return false;
            mateClaim = true;
            length -= last == '#' ? 1 : 2;
        } else if (last == '+') {
            if (checkClaim || mateClaim) return false;
            checkClaim = true;
            --length;
        } else if (endsWith(buffer, length, "e. p.") || endsWith(buffer, length, "e.p.") ||
                   endsWith(buffer, length, "ep")) {
            if (epClaim) return false;
            epClaim = true;
            length -=
                endsWith(buffer, length, "e. p.") ? 5 : (endsWith(buffer, length, "e.p.") ? 4 : 2);
        } else if (isAnnotation(last)) {
            if (annotated) return false;
            annotated = true;
            length -= (length > 2 && isAnnotation(buffer[length - 2])) ? 2 : 1;
        } else {
            break;
        }
    }
    buffer[length] = 0;
    if (length < 2 || length > 6) return false;

    SideState& us = p.toMove();
    const SideState& them = p.notToMove();
    const uint8_t shortRight = p.whiteToMove ? CastleWhiteShort : CastleBlackShort;
    const uint8_t longRight = p.whiteToMove ? CastleWhiteLong : CastleBlackLong;
    const int kingSquare = us.kingSquare();
    int from = -1, to = -1, kind = None, promotion = 0;

    if (length == 5 && (!std::strcmp(buffer, "0-0-0") || !std::strcmp(buffer, "O-O-O"))) {
        if (!(p.castling & longRight) || us.longRookFrom < 0) return false;
        from = kingSquare;
        to = us.longRookFrom;
        kind = King;
    } else if (length == 3 && (!std::strcmp(buffer, "0-0") || !std::strcmp(buffer, "O-O"))) {
        if (!(p.castling & shortRight) || us.shortRookFrom < 0) return false;
        from = kingSquare;
        to = us.shortRookFrom;
        kind = King;
    } else if (format == 0) {
        const char* s = buffer;
        int end = length;
        kind = pieceKindOfLetter(s[0]);
        if (kind != None) {
            ++s;
            --end;
        } else {
            if (s[0] < 'a' || s[0] > 'h') return false;
            kind = Pawn;
        }
        if (end > 0 && pieceKindOfLetter(s[end - 1]) != None && s[end - 1] != 'K') {
            promotion = pieceKindOfLetter(s[end - 1]);
            --end;
            if (end > 0 && (s[end - 1] == '=' || s[end - 1] == '/')) --end;
        }
        if (end < 2) return false;
        const char file = s[end - 2], digit = s[end - 1];
        if (file < 'a' || file > 'h' || digit < '1' || digit > '8') return false;
        to = squareFromLetters(file, digit);
        end -= 2;
        const bool capture =
            (them.men() & squareBit(to)) || (kind == Pawn && p.epSquare >= 0 && to == p.epSquare);
        if (capture) {
            if (end < 1 || s[end - 1] != 'x') return false;
            --end;
        } else if (end > 0 && s[end - 1] == '-') {
            --end;
        }
        Bitboard candidates;
        if (kind == Pawn) {
            if (end == 0) {
                const Bitboard target = squareBit(to);
                if (capture) {
                    // Squares from which one of our pawns takes on `to`.
                    const Bitboard back = p.whiteToMove
                                              ? ((target << 7) & ~FileA) | ((target << 9) & ~FileH)
                                              : ((target >> 9) & ~FileH) | ((target >> 7) & ~FileA);
                    candidates = back & us.pieces[Pawn];
                } else {
                    const int behind = to - us.pawnStep;
                    candidates = 0;
                    if (behind >= 0 && behind < 64) {
                        if (us.pieces[Pawn] & squareBit(behind)) {
                            candidates = squareBit(behind);
                        } else if (!(p.occupied & squareBit(behind))) {
                            const int row = rowOf(to);
                            const bool doubleRow = p.whiteToMove ? row == 4 : row == 3;
                            const int start = behind - us.pawnStep;
                            if (doubleRow && (us.pieces[Pawn] & squareBit(start)))
                                candidates = squareBit(start);
                        }
                    }
                }
            } else {
                candidates = us.pieces[Pawn];
            }
        } else {
            candidates = reachingMen(p, us, kind, kingSquare, to);
            if (kind == King) candidates = us.pieces[King];
        }
        for (int i = 0; i < end; ++i) {
            const char c = s[i];
            if (c >= 'a' && c <= 'h')
                candidates &= FileMask[c - 'a'];
            else if (c >= '1' && c <= '8')
                candidates &= RankOne >> (8 * (c - '1'));
            else
                return false;
        }
        if (popcount(candidates) > 1) {
            for (Bitboard c = candidates; c; c &= c - 1) {
                const int square = firstSquare(c);
                if (!isLegalFromTo(p, makeMoveValue(square, to, kind, promotion)))
                    candidates &= ~squareBit(square);
            }
        }
        if (popcount(candidates) != 1) return false;
        from = firstSquare(candidates);
    } else {
        int end = length;
        const char last = buffer[end - 1];
        const int promotionKind =
            pieceKindOfLetter(static_cast<char>(std::toupper(static_cast<unsigned char>(last))));
        if (promotionKind == Bishop || promotionKind == Knight || promotionKind == Queen ||
            promotionKind == Rook) {
            const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(last)));
            if (upper == 'B' || upper == 'N' || upper == 'Q' || upper == 'R') {
                promotion = promotionKind;
                --end;
            }
        }
        if (end != 4) return false;
        for (int i = 0; i < 4; i += 2)
            if (buffer[i] < 'a' || buffer[i] > 'h' || buffer[i + 1] < '1' || buffer[i + 1] > '8')
                return false;
        from = squareFromLetters(buffer[0], buffer[1]);
        to = squareFromLetters(buffer[2], buffer[3]);
        const Bitboard bit = squareBit(from);
        if (!(us.men() & bit)) return false;
        for (int k = Pawn; k <= King; ++k)
            if (us.pieces[k] & bit) kind = k;
    }

    if (kind == King && (from == 60 || from == 4)) {
        const bool sameRank = rowOf(to) == rowOf(from);
        if (sameRank && fileOf(to) == 6 && us.shortRookFrom >= 0)
            to = us.shortRookFrom;
        else if (sameRank && fileOf(to) == 2 && us.longRookFrom >= 0)
            to = us.longRookFrom;
    }
    if (kind != Pawn) promotion = 0;
    // A pawn reaching the last rank must name its piece, and no other move may name one.
    const bool lastRank = kind == Pawn && (rowOf(to) == 0 || rowOf(to) == 7);
    if (lastRank != (promotion != 0)) return false;
    const Move candidate = makeMoveValue(from, to, kind, promotion);
    if (!isLegalFromTo(p, candidate)) return false;

    if (mateClaim || checkClaim) {
        UndoRecord u;
        beginUndo(u, p);
        if (!makeLegal(p, candidate, u)) return false;
        int result = 0;
        bool ok;
        if (mateClaim)
            ok = hasNoLegalMove(p, &result) && result != 0;
        else
            ok = sideToMoveInCheck(p);
        undoMove(u);
        if (!ok) return false;
    }
    if (epClaim && (kind != Pawn || to != p.epSquare)) return false;
    move = candidate;
    return true;
}
