// Colours and fonts of the pictures.
#pragma once

namespace kestro::tool {

// The CSS classes of the shapes. A track or part has one colour everywhere.
inline constexpr char kStyle[] = R"(
text{font:12px system-ui,"DejaVu Sans",sans-serif;fill:#1f2328}
.title{font-size:18px;font-weight:600}.h{font-size:14px;font-weight:600}
.dim{fill:#59636e}.end{text-anchor:end}.mid{text-anchor:middle}
svg{background:#fff}.page{fill:#fff}.field{fill:#f6f8fa}
.grid{fill:none;stroke:#d8dee4}.axis{fill:none;stroke:#59636e}
.line{fill:none;stroke:currentColor;stroke-width:1.6}
.band{fill:currentColor;fill-opacity:.25;stroke:currentColor;stroke-width:1.6;stroke-linejoin:round;stroke-linecap:round}
.key{fill:none;stroke:currentColor;stroke-width:2}.fill{fill:currentColor}
.t0{color:#0969da}.t1{color:#c4530a}.t2{color:#1a7f37}.t3{color:#8250df}
.t4{color:#9a6700}.t5{color:#bf3989}.t6{color:#0e7c86}.t7{color:#cf222e}
.header{color:#8250df}.JUNK{color:#afb8c1}.movi{color:#54aeff}.index{color:#d4a72c}.other{color:#cf222e}
@media (prefers-color-scheme:dark){
text{fill:#e6edf3}.dim{fill:#9198a1}svg{background:#0d1117}.page{fill:#0d1117}.field{fill:#151b23}
.grid{stroke:#2a313b}.axis{stroke:#9198a1}
.t0{color:#58a6ff}.t1{color:#f0883e}.t2{color:#3fb950}.t3{color:#bc8cff}
.t4{color:#d6a72b}.t5{color:#f778ba}.t6{color:#39c5cf}.t7{color:#ff7b72}
.header{color:#bc8cff}.JUNK{color:#565e67}.movi{color:#316dca}.index{color:#d6a72b}.other{color:#ff7b72}
})";

}  // namespace kestro::tool
