// Bytes by module, then file, then function, as areas within areas. A tile opens what lies in it.
const MEASURES = [['exact_peak', 'Peak'], ['peak', 'Recorded peak'], ['current', 'Current'], ['max', 'Max'], ['cumulative', 'Cumulative']];
const MOST_TILES = 150;          // in one tile
const LEAST_SHARE = 1 / 1500;    // of the whole box; what is smaller shares one tile
const HEAD_HEIGHT = 17;

function columnOf(table, key) {
  const at = table.columns.findIndex((column) => column.key === key);
  return at < 0 ? null : table.cells[at];
}

const measuresOf = (table) => MEASURES.filter(([key]) => columnOf(table, key));

// The tree of one measure: nodes {name, value, children: Map}, the rest row as a module of its own.
function sizeTree(table, measure) {
  const [values, module, file, func] = [measure, 'module', 'file', 'function'].map((key) => columnOf(table, key));
  const root = { name: 'All modules', value: 0, children: new Map() };
  const put = (path, value) => {
    let node = root;
    node.value += value;
    for (const name of path) {
      if (!node.children.has(name)) node.children.set(name, { name, value: 0, children: new Map() });
      node = node.children.get(name);
      node.value += value;
    }
  };
  values.forEach((value, row) => {
    if (value <= 0) return;
    put([textOf(module[row]) || 'OTHER', textOf(file[row]) || 'unknown file', readableOf(func[row]) || 'unknown function'], value);
  });
  const rest = table.rest[table.columns.findIndex((column) => column.key === measure)];
  if (rest > 0) put(['rest: ' + groupedText(table.rest_rows) + ' call sites'], rest);
  return root;
}

class TreeMap {
  constructor(table, holder) {
    this.table = table;
    this.measure = measuresOf(table).map(([key]) => key).find((key) => columnOf(table, key).some((value) => value > 0)) || 'peak';
    this.path = [];
    const choice = element('select', { id: 'measure' },
      ...measuresOf(table).map(([key, title]) => element('option', { value: key }, title)));
    choice.value = this.measure;
    choice.onchange = () => { this.measure = choice.value; this.path = []; this.draw(); };
    this.crumbs = element('span', { className: 'controls', role: 'navigation', 'aria-label': 'Levels' });
    this.box = element('div', { className: 'treemap', role: 'group', 'aria-label': 'Bytes as areas' });
    holder.append(element('h2', {}, 'Where the bytes are'),
      element('div', { className: 'controls' }, element('label', { htmlFor: 'measure' }, 'Measure'), choice, this.crumbs), this.box);
    this.draw();
    new ResizeObserver(() => { if (this.box.clientWidth !== this.width) this.draw(); }).observe(this.box);
  }

  // The node that the path leads to, as far as it exists, with its ancestors.
  trail() {
    const trail = [sizeTree(this.table, this.measure)];
    for (const name of this.path) {
      const next = trail[trail.length - 1].children.get(name);
      if (!next) break;
      trail.push(next);
    }
    return trail;
  }

  draw() {
    this.width = this.box.clientWidth;
    const trail = this.trail();
    this.crumbs.replaceChildren(...trail.map((node, depth) => element('button', {
      type: 'button', disabled: depth === trail.length - 1, onclick: () => this.open(this.path.slice(0, depth)),
    }, baseName(node.name) + ' ' + bytesText(node.value))));
    this.box.replaceChildren(...this.tiles(trail[trail.length - 1]));
  }

  open(path) {
    this.path = path;
    this.draw();
    const first = this.box.querySelector('button');
    if (first) first.focus();
  }

  // What is drawn of a node: {name, value, path, children}, where children too small to see are one.
  drawn(node, path, whole) {
    const all = [...node.children.values()].sort((a, b) => b.value - a.value);
    if (all.length === 0) return { name: node.name, value: node.value, path };
    const shown = all.filter((child, i) => i < MOST_TILES && child.value >= whole * LEAST_SHARE);
    const children = shown.map((child) => this.drawn(child, [...path, child.name], whole));
    const more = all.slice(shown.length);
    if (more.length) children.push({ name: more.length + ' more', value: d3.sum(more, (child) => child.value), path: [...path, ''] });
    return { name: node.name, value: node.value, path, children };
  }

  tiles(node) {
    const root = d3.hierarchy(this.drawn(node, this.path, node.value)).sum((one) => (one.children ? 0 : one.value));
    d3.treemap().size([this.width, this.box.clientHeight]).round(true)
      .paddingTop((one) => (one.depth && one.children ? HEAD_HEIGHT : 0)).paddingInner(1)(root);
    let branching = root;  // where nearly everything lies in one module, its files bear the colours
    while (branching.children && branching.children[0].value > 0.9 * branching.value) branching = branching.children[0];
    root.each((one) => { one.hue = 0; });
    branching.children?.forEach((child, i) => child.each((one) => { one.hue = (i * 137.508) % 360; }));
    return root.descendants().filter((one) => one.depth && one.x1 - one.x0 > 2 && one.y1 - one.y0 > 2)
      .map((one) => this.tile(one, node.value));
  }

  // Only the outermost tiles are stops of the tab key; opening one makes those within it stops.
  tile(one, whole) {
    const { name, value, path, children } = one.data;
    const share = (100 * value / whole).toFixed(1) + ' %';
    const tile = element('button', {
      type: 'button', title: name + '\n' + bytesText(value) + ', ' + share, tabIndex: one.depth === 1 ? 0 : -1,
      'aria-label': name + ', ' + bytesText(value) + ', ' + share, onclick: () => this.open(children ? path : path.slice(0, -1)),
    }, one.x1 - one.x0 > 24 && one.y1 - one.y0 > 12 ? element('span', {}, baseName(name) + ' ' + bytesText(value)) : null);
    Object.assign(tile.style, {
      left: one.x0 + 'px', top: one.y0 + 'px', width: one.x1 - one.x0 + 'px', height: one.y1 - one.y0 + 'px',
    });
    tile.style.setProperty('--hue', one.hue);
    tile.style.setProperty('--depth', one.depth);
    return tile;
  }
}
