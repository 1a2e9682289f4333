"""The chart of the table: a line for each row in which the program stands beside others, with a dot for each of them."""

import math
from xml.sax.saxutils import escape

LINE, LEFT, WIDTH, TOP, BOTTOM = 22, 400, 490, 30, 50
COLOURS = ["#3b82f6", "#d97706", "#16a34a", "#db2777", "#8b5cf6", "#0891b2"]
STYLE = """<style>
text { font: 13px sans-serif; fill: #24292f }
.group { font-weight: bold }
.middle { text-anchor: middle }
.grid { stroke: #8c959f; stroke-opacity: 0.35 }
.own { stroke: #24292f; stroke-width: 2 }
@media (prefers-color-scheme: dark) { text { fill: #e6edf3 } .own { stroke: #e6edf3 } }
</style>"""


def ratios(row):
    """How many times as good as the program each peer is."""
    if not row["ours"]:
        return {}
    return {peer: row["ours"] / value if row["better"] == "lower" else value / row["ours"]
            for peer, value in row["peers"].items() if value}


def axis_label(power):
    return "flowlane" if power == 0 else f"{10**power} x" if power > 0 else f"1/{10**-power}"


def write_chart(path, rows):
    compared = [(row, ratios(row)) for row in rows if ratios(row)]
    values = [ratio for _, of_row in compared for ratio in of_row.values()] or [1]
    low = min(-1, math.floor(math.log10(min(values))))
    high = max(1, math.ceil(math.log10(max(values))))

    def place(ratio):
        return LEFT + WIDTH * (math.log10(ratio) - low) / (high - low)

    # The same tool with other options has the same colour.
    tools = dict.fromkeys(peer.split()[0] for _, of_row in compared for peer in of_row)
    colours = dict(zip(tools, COLOURS * len(tools)))
    parts, y, group = [], TOP, None
    for row, of_row in compared:
        if row["group"] != group:
            group = row["group"]
            y += LINE + 6
            parts.append(f'<text class="group" x="8" y="{y}">{escape(group)}</text>')
        y += LINE
        parts.append(f'<text x="20" y="{y}">{escape(row["name"])}</text>')
        parts += [f'<circle cx="{place(ratio):.1f}" cy="{y - 4}" r="5" fill="{colours[peer.split()[0]]}">'
                  f'<title>{escape(peer)}: {ratio:.3g}</title></circle>' for peer, ratio in of_row.items()]
    grid = [f'<line class="{"grid" if power else "own"}" x1="{place(10**power):.1f}" x2="{place(10**power):.1f}" '
            f'y1="{TOP}" y2="{y + 8}"/><text class="middle" x="{place(10**power):.1f}" y="{TOP - 8}">'
            f'{axis_label(power)}</text>' for power in range(low, high + 1)]
    legend = [f'<circle cx="{20 + 130 * number}" cy="{y + 36}" r="5" fill="{colour}"/>'
              f'<text x="{30 + 130 * number}" y="{y + 40}">{escape(tool)}</text>'
              for number, (tool, colour) in enumerate(colours.items())]
    width, height = LEFT + WIDTH + 30, y + BOTTOM
    path.write_text("\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}">',
        "<title>How many times as good as flowlane other tools are</title>", STYLE, *grid, *parts, *legend, "</svg>"]) + "\n")
