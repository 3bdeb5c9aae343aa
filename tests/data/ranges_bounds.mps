* Hand-written free MPS: RANGES on every row type, every bound type, integer markers, a second
* (ignored) RHS vector, an empty section, the objective constant through RHS and OBJSENSE as
* a section of its own.
NAME edge
OBJSENSE
    MAX
ROWS
 N profit
 N spare
 E e_pos
 E e_neg
 L l_row
 G g_row
 E e_zero
 L l_zero
COLUMNS
    x profit 1 e_pos 1
    x e_neg 1 l_row 1
    MARKER 'MARKER' 'INTORG'
    i profit 2 g_row 1
    i spare 9
    j e_zero 1
    ui l_zero 1
    MARKER 'MARKER' 'INTEND'
    k g_row -1
    mi profit 0
    bv profit 0
    li profit 0
    sc profit 0
    si profit 0
    fx profit 0
    fr profit 0
    big profit 0
RHS
    RHS profit -4.5 e_pos 3
    RHS e_neg 3 l_row 10
    RHS g_row -2 e_zero 1
    RHS l_zero 7
    OTHER l_row 99
RANGES
    RNG e_pos 2 e_neg -2
    RNG l_row 4 g_row -6
    RNG e_zero 0 l_zero 0
BOUNDS
 UP BND i -3
 UP BND j -1
 LO BND j -8
 UI BND ui -4
 MI BND mi
 BV BND bv
 LI BND li 2
 LO BND sc 1
 SC BND sc 9
 SI BND si 20
 FX BND fx 2.5
 FR BND fr
 UP BND big 1e30
 LO BND big -1e31
SOS
ENDATA
