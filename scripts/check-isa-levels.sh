#!/usr/bin/env bash
# Disassembles object files and fails on any instruction beyond their level:
#   check-isa-levels.sh OBJDUMP LEVEL OBJECT...   (LEVEL: baseline ssse3 sse41 avx avx2)
# Baseline code runs on every x86-64 processor, so it may use SSE2 and nothing
# newer; a file built for one level may not use the next. Emulators do not fault
# every instruction a model lacks (qemu-user runs AVX anywhere), so this is the
# check that does not depend on one. xgetbv is allowed: feature detection runs it
# only when OSXSAVE says it exists. tzcnt is allowed: it is how compilers encode
# "rep bsf", which older processors run as bsf (same result for a non-zero input).
set -euo pipefail
objdump=$1 level=$2
shift 2
sse3='addsubps|addsubpd|haddps|haddpd|hsubps|hsubpd|movddup|movshdup|movsldup|lddqu|fisttp[sl]?|monitor|mwait'
ssse3='pshufb|phaddw|phaddd|phaddsw|phsubw|phsubd|phsubsw|pmaddubsw|pmulhrsw|psignb|psignw|psignd|pabsb|pabsw|pabsd|palignr'
sse41='blendps|blendpd|blendvps|blendvpd|pblendvb|pblendw|dpps|dppd|extractps|insertps|movntdqa|mpsadbw|packusdw|pcmpeqq|pextrb|pextrd|pextrq|pinsrb|pinsrd|pinsrq|pmaxsb|pmaxsd|pmaxud|pmaxuw|pminsb|pminsd|pminud|pminuw|pmovsx[bwd][wdq]|pmovzx[bwd][wdq]|pmuldq|pmulld|ptest|roundps|roundpd|roundss|roundsd|phminposuw'
beyond='pcmpgtq|pcmpestri|pcmpestrm|pcmpistri|pcmpistrm|crc32[bwlq]?|popcnt[wlq]?|lzcnt[wlq]?|andn[lq]?|bextr[lq]?|blsi[lq]?|blsmsk[lq]?|blsr[lq]?|bzhi[lq]?|mulx[lq]?|pdep[lq]?|pext[lq]?|rorx[lq]?|sarx[lq]?|shlx[lq]?|shrx[lq]?|movbe[wlq]?|vfn?m(add|sub)[0-9a-z]*|vfmaddsub[0-9a-z]*|vfmsubadd[0-9a-z]*|vcvtph2ps|vcvtps2ph'
avx2only='vpbroadcast[bwdq]|vbroadcasti128|vperm2i128|vpermd|vpermq|vpermps|vpermpd|vinserti128|vextracti128|vpmaskmov[dq]|vpsllv[dq]|vpsrlv[dq]|vpsravd|vpblendd|v(p?)gather[a-z0-9]*'
case $level in
  baseline) forbidden="$sse3|$ssse3|$sse41|$beyond|v[a-z0-9]+"; vex=no ;;
  ssse3) forbidden="$sse41|$beyond|v[a-z0-9]+"; vex=no ;;
  sse41) forbidden="$beyond|v[a-z0-9]+"; vex=no ;;
  avx) forbidden="$beyond|$avx2only"; vex=avx ;;
  avx2) forbidden="$beyond"; vex=avx2 ;;
  *) echo "check-isa-levels: unknown level '$level'" >&2; exit 2 ;;
esac
bad=0
for obj in "$@"; do
  out=$("$objdump" -d --no-show-raw-insn "$obj" | awk -v forbidden="^($forbidden)\$" -v vex="$vex" -v obj="$obj" '
    /^[0-9a-f]+ <.*>:$/ { fn = $2; sub(/:$/, "", fn) }
    /^ *[0-9a-f]+:\t/ {
      split($0, part, "\t"); insn = part[2]; sub(/^ +/, "", insn)
      n = split(insn, word, /[ ,]+/); mnem = word[1]
      if (mnem ~ /^(rex|rep|repz|repnz|lock|data16|notrack|bnd|cs|ds|es|ss)/ && n > 1) mnem = word[2]
      why = ""
      if (mnem == "xgetbv") next
      if (mnem ~ forbidden) why = "instruction"
      else if (insn ~ /%zmm|%k[0-7]|\{/) why = "512-bit register"
      else if (vex == "no" && insn ~ /%ymm/) why = "256-bit register"
      else if (vex == "avx" && mnem ~ /^vp/ && mnem !~ /^vperm(ilps|ilpd|2f128)$/ && mnem != "vptest" && insn ~ /%ymm/) why = "256-bit integer instruction"
      else if (vex == "avx" && mnem ~ /^vbroadcasts[sd]$/ && insn ~ /^[a-z0-9]+ +%xmm/) why = "register broadcast"
      if (why != "") printf "%s %s: %s (%s)\n", obj, fn, insn, why
    }')
  if [[ -n $out ]]; then
    echo "$out" | head -20
    bad=1
  fi
done
if ((bad)); then
  echo "check-isa-levels: instructions beyond the $level level (see above)" >&2
  exit 1
fi
echo "check-isa-levels: $# $level object file(s) clean"
