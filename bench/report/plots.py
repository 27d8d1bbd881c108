"""Pictures of the figures, drawn by gnuplot."""

import pathlib
import subprocess
import tempfile

import figures
import rows

STYLE = """
set terminal svg size 840,480 font 'sans-serif,13' background rgb 'white'
set key outside right top
set grid
"""


def draw(cases, targets, folder):
    folder.mkdir(parents=True, exist_ok=True)
    draw_growth(cases, folder / "growth.svg")
    draw_throughput(cases, folder / "throughput.svg")
    draw_ratios(cases, targets, folder / "ratios.svg")


def draw_growth(cases, path):
    names = figures.growths(cases)
    lines = [(name.removeprefix("growth_").replace("_", " "),
              figures.relative(figures.series(cases, name, "per_item"))) for name in names]
    plot(path, lines, f"""
set logscale xy
set key below
set title 'Cost of one item against that in the smallest size'
set xlabel 'items: accounts, handlers, bytes'
set format x '10^{{%T}}'
set arrow from graph 0,first {rows.GROWTH_AT_MOST} to graph 1,first {rows.GROWTH_AT_MOST} nohead dashtype 2
""")


def draw_throughput(cases, path):
    points = figures.series(cases, "manager_throughput", "items_per_second")
    plot(path, [("fresh tokens", points)], """
set title 'Fresh tokens a second, by asking threads'
set xlabel 'threads'
set yrange [0:*]
""")


def draw_ratios(cases, targets, path):
    """One bar for each case that has a floor, with a mark at what it must reach."""
    found = [(target["case"].replace("_", " "), cases[target["case"]]["ratio"], ratio_limit(target))
             for target in targets if "ratio" in cases.get(target["case"], {})]
    data = "\n".join(f'{number} "{name}" {ratio} {limit}'
                     for number, (name, ratio, limit) in enumerate(found))
    gnuplot(path, {"ratios": data}, """
set title 'Time against the floor of the same run'
set style fill solid 0.6
set boxwidth 0.6
set yrange [0:*]
set xtics rotate by -35
""", """plot $ratios using 1:3:xtic(2) with boxes title 'measured', \
 $ratios using 1:4 with points pointtype 2 pointsize 2 linecolor rgb 'red' title 'must reach'""")


def ratio_limit(target):
    return next((limit["at_most"] for limit in target["limits"] if limit["of"] == "ratio"), "NaN")


def plot(path, lines, settings):
    data = {f"line{number}": "\n".join(f"{x} {y}" for x, y in points)
            for number, (_, points) in enumerate(lines)}
    curves = ", ".join(f"$line{number} with linespoints title '{title}'"
                       for number, (title, _) in enumerate(lines))
    gnuplot(path, data, settings, f"plot {curves}")


def gnuplot(path, data, settings, command):
    blocks = "".join(f"${name} << END\n{text}\nEND\n" for name, text in data.items())
    with tempfile.TemporaryDirectory() as folder:
        drawn = pathlib.Path(folder) / "plot.svg"
        script = f"{STYLE}{settings}set output '{drawn}'\n{blocks}{command}\n"
        subprocess.run(["gnuplot"], input=script, text=True, check=True, timeout=60)
        path.write_text(drawn.read_text())
