"""Plots every figure that has a goal, relative to its bound, as SVG."""
from html import escape

import figures

ROW, LEFT, WIDTH, TOP = 15, 400, 420, 46
MAX_EXCESS = 2.0  # times the bound, at the right edge


def svg(lines):
    lines = figures.with_bound(lines)
    lines.sort(key=lambda line: (line["goalNumber"] or 99, figures.name_of(line)))
    height = TOP + ROW * len(lines) + 12
    bound = LEFT + WIDTH / MAX_EXCESS
    out = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + 140}" height="{height}" '
        'font-family="sans-serif" font-size="11">',
        '<rect width="100%" height="100%" fill="white"/>',
        '<text x="10" y="18" font-size="14">Figures relative to their bound; shorter is better</text>',
        f'<text x="{bound}" y="38" text-anchor="middle" fill="#555">bound</text>',
    ]
    for row, line in enumerate(lines):
        y = TOP + ROW * row
        part = min(figures.excess(line), MAX_EXCESS)
        if line["goal"] == 0 and line["median"] <= 0:
            part = 0
        colour = "#3a7d44" if figures.excess(line) <= 1 else "#c0562b"
        label = f"{line['goalNumber'] or 'growth'}  {figures.name_of(line)}"
        out.append(f'<text x="{LEFT - 8}" y="{y + 10}" text-anchor="end">{escape(label)}</text>')
        out.append(
            f'<rect x="{LEFT}" y="{y + 1}" width="{max(part * WIDTH / MAX_EXCESS, 1):.1f}" height="{ROW - 4}" '
            f'fill="{colour}"/>'
        )
        out.append(f'<text x="{LEFT + WIDTH + 6}" y="{y + 10}">{escape(figures.value_of(line))}</text>')
    out.append(
        f'<line x1="{bound}" x2="{bound}" y1="{TOP - 4}" y2="{height - 8}" stroke="#555" ' 'stroke-dasharray="3 3"/>'
    )
    out.append("</svg>")
    return "\n".join(out) + "\n"
