// Memory over the run. All charts of a process share one range: of samples, or of seconds, which all processes share.
const charts = { graphs: [], whole: [0, 1], syncing: false, inSeconds: true, narrowest: 2, process: null };

// The legends are ours; the library's own would write style attributes, which the page forbids.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

const SERIES_TITLES = {
  resident: 'resident', commit_charge: 'committed', page_faults: 'page faults (right axis)',
  profiler_allocated_outstanding: 'the tracker\u2019s own',
};
const CHART_TITLES = { modules: 'Memory of modules', tags: 'Memory of tags', process: 'The process as the system sees it', resident: 'The resident memory' };

// Where a row lies on the axis in force.
function placesOf(chart, process) {
  if (!usesSeconds(process)) return chart.rows.map((row) => row[0]);
  return chart.times.map((time) => secondsOf(process, time));
}

// Stretches of equal label: [{from, to, name}]; each reaches to where the next begins.
function bandsOf(chart, process) {
  const bands = [], places = placesOf(chart, process);
  chart.rows.forEach((row, i) => {
    const last = bands[bands.length - 1];
    if (last && last.label === row[1]) last.to = places[i];
    else {
      if (last) last.to = places[i];
      bands.push({ from: places[i], to: places[i], label: row[1] });
    }
  });
  return bands.map((band) => ({ ...band, name: textOf(chart.labels[band.label]) || 'Other' }));
}

function paintBands(context, area, graph, bands) {
  const alpha = Number(cssValue('--band'));
  context.font = '11px system-ui, sans-serif';
  for (const band of bands) {
    const left = Math.max(graph.toDomXCoord(band.from), area.x);
    const right = Math.min(graph.toDomXCoord(band.to), area.x + area.w);
    if (right <= left) continue;
    const colour = d3.hsl((band.label * 67 + 200) % 360, 0.6, 0.5);
    colour.opacity = alpha;
    context.fillStyle = colour.toString();
    context.fillRect(left, area.y, right - left, area.h);
    if (right - left < 40) continue;
    context.save();
    context.beginPath();
    context.rect(left, area.y, right - left - 3, area.h);
    context.clip();
    context.fillStyle = cssValue('--dim');
    context.fillText(band.name, left + 4, area.y + 12);
    context.restore();
  }
}

// The index of the recorded peak as the report has it, and the sample where the sum of this chart stood highest.
// The two differ when the host flushed a peak that no later one surpassed.
function marksOf(chart, process) {
  const marks = [], places = placesOf(chart, process);
  const peak = usesSeconds(process) ? process.clock.peak && secondsOf(process, process.clock.peak) : process.peak_index;
  if (peak !== null) marks.push({ x: peak, text: 'last recorded peak, index ' + process.peak_index });
  if (chart.stacked) {
    const highest = d3.scan(chart.rows, (a, b) => d3.sum(b.slice(2)) - d3.sum(a.slice(2)));
    marks.push({ x: places[highest], text: 'highest, sample ' + chart.rows[highest][0] });
  }
  return marks;
}

// Over the areas, with a rim in the colour of the page, so that the words can be read on any of them.
function paintMarks(context, area, graph, marks) {
  context.font = '11px system-ui, sans-serif';
  context.strokeStyle = context.fillStyle = cssValue('--peak');
  marks.forEach((mark, i) => {
    const x = graph.toDomXCoord(mark.x);
    if (x < area.x || x > area.x + area.w) return;
    context.setLineDash(i === 0 ? [5, 3] : [1, 2]);
    context.beginPath();
    context.moveTo(x, area.y);
    context.lineTo(x, area.y + area.h);
    context.stroke();
    context.setLineDash([]);
    const width = context.measureText(mark.text).width;
    const left = Math.max(area.x, Math.min(x + 4, area.x + area.w - width - 4));
    context.save();
    context.lineWidth = 4;
    context.lineJoin = 'round';
    context.strokeStyle = cssValue('--back');
    context.strokeText(mark.text, left, area.y + 26 + 15 * i);
    context.restore();
    context.fillText(mark.text, left, area.y + 26 + 15 * i);
  });
}

// What the process may not go beyond, as lines across.
function paintLimits(context, area, graph, limits) {
  context.strokeStyle = context.fillStyle = cssValue('--peak');
  for (const limit of limits) {
    const y = graph.toDomYCoord(limit.bytes);
    if (y < area.y) continue;
    context.fillRect(area.x, y, area.w, 1);
    context.fillText(limit.title + ' ' + bytesText(limit.bytes), area.x + 4, y + 12);
  }
}

// A limit is drawn where the run came anywhere near it.
function valueRangeOf(chart, limits) {
  const highest = d3.max(chart.rows, (row) => d3.sum(row.slice(2))) || 0;
  const near = limits.map((limit) => limit.bytes).filter((bytes) => bytes < 4 * highest);
  return near.length ? { valueRange: [0, 1.08 * Math.max(highest, ...near)] } : {};
}

const themeOptions = () => ({
  axisLineColor: cssValue('--line'), gridLineColor: cssValue('--grid'),
  rangeSelectorPlotFillColor: cssValue('--accent'), rangeSelectorPlotStrokeColor: cssValue('--accent'),
  rangeSelectorBackgroundStrokeColor: cssValue('--dim'),
});

function setRange(range) {
  charts.syncing = true;
  for (const graph of charts.graphs) graph.updateOptions({ dateWindow: range });
  charts.syncing = false;
}

function followRange(graph, initial) {
  if (initial || charts.syncing) return;
  const range = graph.xAxisRange();
  charts.syncing = true;
  for (const other of charts.graphs) {
    const has = other.xAxisRange();
    if (other !== graph && (has[0] !== range[0] || has[1] !== range[1])) other.updateOptions({ dateWindow: range });
  }
  charts.syncing = false;
}

// Zooms about the middle by a factor and moves by a share of what is seen, within the run.
function changeRange(factor, shift) {
  if (charts.graphs.length === 0) return;
  const [first, last] = charts.whole;
  const [from, to] = charts.graphs[0].xAxisRange();
  const width = Math.min(last - first, Math.max((to - from) * factor, charts.narrowest));
  const middle = (from + to) / 2 + shift * (to - from);
  const start = Math.min(Math.max(middle - width / 2, first), last - width);
  setRange([start, start + width]);
}

const showWhole = () => setRange(usesSeconds(charts.process) ? charts.whole : null);

const RANGE_KEYS = {
  '+': () => changeRange(0.5, 0), '=': () => changeRange(0.5, 0), '-': () => changeRange(2, 0),
  ArrowLeft: () => changeRange(1, -0.25), ArrowRight: () => changeRange(1, 0.25),
  0: showWhole, Escape: showWhole,
};

function rangeKey(event) {
  const action = RANGE_KEYS[event.key];
  if (!action || event.ctrlKey || event.metaKey || event.altKey) return;
  event.preventDefault();
  action();
}

// Seconds beside samples: a button that changes the axis.
function axisChoice(process) {
  const text = charts.inSeconds ? 'Show samples' : 'Show seconds';
  return element('button', { type: 'button', id: 'axis', onclick: () => { charts.inSeconds = !charts.inSeconds; showProcess(process); } }, text);
}

function rangeControls(process) {
  const button = (text, action) => element('button', { type: 'button', onclick: action }, text);
  return element('div', { className: 'controls', id: 'range-controls', role: 'group', 'aria-label': 'Range of the run' },
    button('Zoom in', () => changeRange(0.5, 0)), button('Zoom out', () => changeRange(2, 0)),
    button('\u25c0 Earlier', () => changeRange(1, -0.25)), button('Later \u25b6', () => changeRange(1, 0.25)),
    button('Whole run', showWhole), hasSeconds(process) ? axisChoice(process) : null,
    element('span', { className: 'note' }, 'Drag in a chart to zoom, double-click for all; keys + \u2212 \u2190 \u2192 0.'));
}

// One button for each series: its colour, its name, its value under the pointer; pressed while it is drawn.
function makeLegend(chart, names, colours, graphOf) {
  const legend = element('div', { className: 'legend' });
  const values = names.map((name, i) => {
    const mark = element('i');
    mark.style.background = colours[i];
    const value = element('span');
    const button = element('button', { type: 'button', title: name, 'aria-pressed': 'true' }, mark, name, value);
    button.onclick = () => {
      const on = button.getAttribute('aria-pressed') !== 'true';
      button.setAttribute('aria-pressed', String(on));
      graphOf().setVisibility(i, on);
    };
    legend.append(button);
    return value;
  });
  return { legend, values };
}

function drawChart(chart, process, bands, holder) {
  const places = placesOf(chart, process);
  const names = chart.series.map((number) => (chart.stacked ? textOf(number) : SERIES_TITLES[textOf(number)]) || textOf(number));
  const colours = names.map((_, i) => (chart.rest && i === 0 ? '#8a8f98' : seriesColour(i)));
  const faults = chart.series.findIndex((number) => textOf(number) === 'page_faults');
  const marks = marksOf(chart, process);
  const limits = chart.key === 'resident' ? process.resident.limits : [];
  let graph = null;
  const { legend, values } = makeLegend(chart, names, colours, () => graph);
  const status = element('p', { className: 'note', 'aria-live': 'off' }, '\u00a0');
  const box = element('div', {
    className: chart.stacked ? 'chart' : 'chart low', tabIndex: 0, role: 'group', onkeydown: rangeKey, 'data-chart': chart.key,
    'aria-label': CHART_TITLES[chart.key] + '. Keys: plus and minus zoom, arrows move, 0 shows the whole run.',
  });
  holder.append(element('h3', {}, CHART_TITLES[chart.key]), legend, box, status);
  const show = (row) => {
    const at = chart.rows[row];
    const label = at[1] < chart.labels.length ? textOf(chart.labels[at[1]]) : '';
    const time = chart.times.length ? ', ' + secondsText(chart.times[row] / 1000) : '';
    status.textContent = 'sample ' + groupedText(at[0]) + time + (label ? ', ' + label : '');
    values.forEach((value, i) => { value.textContent = ' ' + figureText(at[i + 2], i === faults ? 'blocks' : 'bytes'); });
  };
  const labels = ['sample', ...names.map((_, i) => 's' + i)];
  graph = new Dygraph(box, chart.rows.map((row, i) => [places[i], ...row.slice(2).map((v) => (v === -1 && !chart.stacked ? null : v))]), {
    ...themeOptions(), labels, colors: colours, stackedGraph: chart.stacked, fillGraph: chart.stacked, fillAlpha: 0.75,
    strokeWidth: chart.stacked ? 0.6 : 1.4, showRangeSelector: charts.graphs.length === 0, rangeSelectorHeight: 34,
    ...valueRangeOf(chart, limits), includeZero: true, rightGap: process.charts.every((one) => one.stacked) || !chart.stacked ? 5 : 83, highlightCircleSize: 2,
    interactionModel: Dygraph.defaultInteractionModel,  // with a range selector a drag would otherwise move, not zoom
    series: faults >= 0 ? { ['s' + faults]: { axis: 'y2' } } : {},
    axes: {
      x: { axisLabelFormatter: (x) => (usesSeconds(process) ? secondsText(x) : Number.isInteger(x) ? groupedText(x) : '') },
      y: { axisLabelFormatter: bytesText, axisLabelWidth: 74, labelsKMG2: true },
      y2: { axisLabelFormatter: (y) => groupedText(Math.round(y)), axisLabelWidth: 74 },
    },
    underlayCallback: (context, area, drawn) => paintBands(context, area, drawn, bands),
    plugins: [{
      activate: () => ({ didDrawChart: (event) => {
        const place = [event.drawingContext, event.dygraph.getArea(), event.dygraph];
        paintMarks(...place, marks);
        paintLimits(...place, limits);
      } }),
      destroy: () => {},
    }],
    highlightCallback: (event, x, points, row) => show(row),
    ...(usesSeconds(process) ? { dateWindow: charts.whole } : {}), drawCallback: followRange,
  });
  charts.graphs.push(graph);
}

function drawCharts(process, holder) {
  for (const graph of charts.graphs) graph.destroy();
  charts.graphs = [];
  charts.process = process;
  if (process.charts.length === 0) return;
  holder.append(element('h2', {}, 'Over the run'), rangeControls(process));
  const samples = Math.max(...process.charts.map((chart) => chart.samples));
  charts.whole = usesSeconds(process) ? [0, Math.max(wholeRunSeconds(), 0.001)] : [0, Math.max(samples - 1, 1)];
  charts.narrowest = usesSeconds(process) ? 0.001 : 2;
  // Figures of the whole process bear no label of their own.
  const isLabelled = (chart) => chart.stacked && chart.key !== 'resident';
  const labelled = process.charts.find(isLabelled);
  for (const chart of process.charts) {
    const source = isLabelled(chart) ? chart : labelled;
    drawChart(chart, process, source ? bandsOf(source, process) : [], holder);
  }
}

matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
  for (const graph of charts.graphs) graph.updateOptions(themeOptions());
});
