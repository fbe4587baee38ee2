"""The picture of the benchmark's table."""
import math


def chart(table, best_peer):
    """Bars on a logarithmic scale: how many times as long as cp of the output it takes. `best_peer`
    gives name and cost of the quickest peer of a row, if there is one."""
    left, width, height = 250, 520, 15
    drawn = [row for row in table if best_peer(row.costs)]
    largest = max((best_peer(row.costs)[1].wall / row.costs["cp out"].wall for row in drawn),
                  default=10)
    decades = math.ceil(math.log10(max(largest, 10))) + 1  # from 0.1 on

    def x(ratio):
        return left + width * (math.log10(max(ratio, .1)) + 1) / decades

    total = 60 + len(drawn) * (2 * height + 10)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 70}" '
             f'height="{total}" font-family="sans-serif" font-size="12">',
             f'<rect width="100%" height="100%" fill="white"/>'
             f'<text x="10" y="20" font-weight="bold">Wall time ÷ cp of the output</text>'
             f'<text x="{left}" y="20" fill="#1b6ca8">objtrim</text>'
             f'<text x="{left + 70}" y="20" fill="#999">best peer</text>']
    for decade in range(decades + 1):
        ratio = 10 ** (decade - 1)
        parts.append(f'<line x1="{x(ratio):.0f}" y1="40" x2="{x(ratio):.0f}" y2="{total}" '
                     f'stroke="#ddd"/><text x="{x(ratio):.0f}" y="36" fill="#666" '
                     f'text-anchor="middle">{ratio:g}</text>')
    y = 48
    for row in drawn:
        parts.append(f'<text x="{left - 8}" y="{y + height + 4}" text-anchor="end">'
                     f'{row.case}, {row.mode}</text>')
        for cost, colour in ((row.costs["objtrim"], "#1b6ca8"),
                             (best_peer(row.costs)[1], "#bbb")):
            ratio = cost.wall / row.costs["cp out"].wall
            parts.append(f'<rect x="{left}" y="{y}" width="{max(x(ratio) - left, 1):.0f}" '
                         f'height="{height - 2}" fill="{colour}"/>'
                         f'<text x="{x(ratio) + 4:.0f}" y="{y + 11}" fill="#444">{ratio:.2g}</text>')
            y += height
        y += 10
    return "\n".join(parts + ["</svg>"]) + "\n"
