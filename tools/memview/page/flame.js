// The flame graph: who called whom, with the bytes as widths. A click looks closer, the browser's back button looks back.
const ROW_HEIGHT = 19;
const LEAST_WIDTH = 0.6;       // of a box, in pixels
const LETTER_WIDTH = 6.4;      // about, at 12 pixels
const flames = { graph: null, made: 0 };

const shareText = (part, whole) => (whole > 0 ? (100 * part / whole).toFixed(1) + ' %' : '');
// Empty where the reports do not know it.
const placeText = ({ file }, line) => (file === 'Unknown' ? '' : file && file + (line ? ':' + line : ''));

class FlameGraph {
  constructor(flame, holder) {
    this.trees = new PathTrees(flame);
    this.comparison = flame.comparison;
    this.number = ++flames.made;  // steps of another process are not ours to take back
    const filled = this.trees.measures.find((measure) => measure.own.some((value) => value > 0)) || this.trees.measures[0];
    this.view = { measure: filled.key, mode: 'callers', only: null, zoom: [], lines: false, foldFiltered: true, foldRecursion: false };
    this.selected = null;
    this.build(holder);
    this.remember(true);
    this.rebuild();
    new ResizeObserver(() => { if (this.box.clientWidth !== this.width) this.draw(); }).observe(this.box);
  }

  // ---- Controls

  build(holder) {
    this.measure = element('select', { id: 'flame-measure', onchange: () => this.change({ measure: this.measure.value }) },
      ...this.trees.measures.map((one) => element('option', { value: one.key }, one.title)));
    this.modes = [['callers', 'Callers at the root'], ['allocators', 'Allocators at the root']].map(([mode, title]) => {
      const button = element('button', { type: 'button', onclick: () => this.go({ mode, zoom: [] }) }, title);
      button.dataset.mode = mode;
      return button;
    });
    this.switches = [['foldFiltered', 'Fold library frames'], ['foldRecursion', 'Fold recursion'], ['lines', 'Lines apart']].map(([key, title]) => {
      const box = element('input', { type: 'checkbox', id: 'flame-' + key, onchange: () => this.change({ [key]: box.checked }) });
      return [key, box, element('label', { htmlFor: box.id }, box, ' ' + title)];
    });
    this.search = element('input', { type: 'search', id: 'flame-search', placeholder: 'function or file', oninput: () => this.draw() });
    this.found = element('span', { className: 'note', role: 'status' });
    this.backward = element('button', { type: 'button', onclick: () => history.back() }, '\u25c0 Back');
    this.whole = element('button', { type: 'button', onclick: () => this.all() }, 'Whole graph');
    this.only = element('span', { className: 'chip', hidden: true });
    this.canvas = element('canvas', {});
    this.tip = element('div', { className: 'flame-tip', hidden: true });
    this.box = element('div', {
      className: 'flame', tabIndex: 0, role: 'group', onkeydown: (event) => this.key(event),
      'aria-label': 'Flame graph. Arrows move, Enter looks closer, Backspace looks back, W shows who calls this, slash searches.',
    }, this.canvas);
    this.detail = element('div', { className: 'flame-detail', 'aria-live': 'polite' });
    this.canvas.onmousemove = (event) => this.hover(event);
    this.canvas.onmouseleave = () => { this.tip.hidden = true; };
    this.canvas.onclick = (event) => this.click(event);
    holder.append(element('h2', {}, this.comparison ? 'Who called it, and what changed' : 'Who called it'),
      element('div', { className: 'controls' }, element('label', { htmlFor: 'flame-measure' }, 'Measure'), this.measure, ...this.modes,
        ...this.switches.map(([, , label]) => label)),
      element('div', { className: 'controls' }, this.backward, this.whole, element('label', { htmlFor: 'flame-search' }, 'Search'),
        this.search, this.found, this.only),
      this.box, this.detail, this.tip);
  }

  showControls() {
    this.measure.value = this.view.measure;
    for (const button of this.modes) button.setAttribute('aria-pressed', String(button.dataset.mode === this.view.mode));
    for (const [key, box] of this.switches) box.checked = this.view[key];
    this.backward.disabled = !history.state || !history.state.depth;
    this.whole.disabled = this.view.zoom.length === 0 && !this.view.only;
    this.only.hidden = !this.view.only;
    if (this.view.only) {
      this.only.replaceChildren('Only ' + this.view.only.title + ' ',
        element('button', { type: 'button', 'aria-label': 'Show all paths', onclick: () => this.all() }, '\u2715'));
    }
  }

  // ---- The state, of which the browser's history keeps the steps

  remember(first) {
    const depth = first ? 0 : (history.state?.depth || 0) + 1;
    history[first ? 'replaceState' : 'pushState']({ depth, view: this.view, graph: this.number }, '');
  }

  // A step that can be taken back.
  go(changes) {
    this.view = { ...this.view, ...changes };
    this.remember(false);
    this.rebuild();
  }

  // A setting; the zoom stays as far as it can.
  change(changes) {
    this.view = { ...this.view, ...changes };
    history.replaceState({ ...history.state, view: this.view }, '');
    this.rebuild();
  }

  restore(view) {
    this.view = view;
    this.rebuild();
  }

  rebuild() {
    this.unit = this.trees.measure(this.view.measure).unit;
    this.root = this.trees.build(this.view);
    this.focus = nodeAt(this.root, this.view.zoom);
    this.selected = null;
    this.tip.hidden = true;
    this.showControls();
    this.draw();
    this.tell(null);
  }

  zoom(node) { if (node !== this.focus) this.go({ zoom: keysOf(node) }); }

  all() { this.go({ zoom: [], only: null, lines: this.view.only ? this.view.only.lines : this.view.lines }); }

  // Only a part of the paths, line by line until all are shown again.
  restrict(only, mode) {
    const lines = this.view.only ? this.view.only.lines : this.view.lines;
    const measure = only.measure || this.view.measure;
    this.go({ only: { ...only, lines }, mode, measure, lines: mode === 'allocators', zoom: [] });
  }

  // Everything that leads to a function, its own callers at the root.
  whoCalls({ frame }) { this.restrict({ kind: 'through', func: frame.func, title: 'through ' + frame.name }, 'allocators'); }

  // What a row of a table has in the graph, or null.
  partOf(table, row) {
    const value = (key) => {
      const at = table.columns.findIndex((column) => column.key === key);
      const cell = at < 0 ? null : table.cells[at][row];
      return at >= 0 && table.columns[at].unit === 'text' ? textOf(cell) : cell;
    };
    let only = null;
    if (table.key === 'modules') only = { kind: 'module', module: value('name'), title: 'what ' + value('name') + ' allocates' };
    else if (value('function') !== null && value('line') !== null) {
      const [file, line, module] = [value('file'), value('line'), value('module')];
      const whole = value('function') || '[' + module + ']';
      only = { kind: 'site', file, line, module, whole, title: (file ? baseName(file) + ':' + line : module) };
    }
    if (only && table.key === 'leaks') only.measure = 'current';
    return only && this.trees.has(only) ? only : null;
  }

  show(only) {
    this.restrict(only, only.kind === 'module' ? 'callers' : 'allocators');
    this.box.scrollIntoView({ block: 'center' });
    this.box.focus({ preventScroll: true });
  }

  // ---- Drawing

  // Boxes {node, x, width, row}; what is too narrow is left out.
  layOut() {
    const trail = [];
    for (let node = this.focus.parent; node; node = node.parent) trail.unshift(node);
    const boxes = trail.map((node, row) => ({ node, x: 0, width: this.width, row, above: true }));
    const least = this.focus.value * LEAST_WIDTH / this.width;
    const tree = d3.hierarchy(this.focus, (node) => node.children.filter((child) => child.value >= least));
    tree.each((one) => { one.value = one.data.value; });
    d3.partition().size([this.width, tree.height + 1])(tree);
    tree.each((one) => boxes.push({ node: one.data, x: one.x0, width: one.x1 - one.x0, row: trail.length + one.depth }));
    return boxes;
  }

  draw() {
    this.width = this.box.clientWidth;
    this.boxes = this.layOut();
    this.rows = [];
    for (const box of this.boxes) (this.rows[box.row] ??= []).push(box);
    const height = this.rows.length * ROW_HEIGHT + 1;
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = Math.round(this.width * ratio);
    this.canvas.height = Math.round(height * ratio);
    Object.assign(this.canvas.style, { width: this.width + 'px', height: height + 'px' });
    const context = this.canvas.getContext('2d');
    context.scale(ratio, ratio);
    context.font = '12px system-ui, sans-serif';
    context.textBaseline = 'middle';
    const wanted = this.search.value.trim().toLowerCase();
    const style = { dark: matchMedia('(prefers-color-scheme: dark)').matches, text: cssValue('--tile-text'), dim: cssValue('--dim'),
      accent: cssValue('--accent'), found: cssValue('--found'), back: cssValue('--panel') };
    for (const box of this.boxes) this.paint(context, box, style, wanted);
    this.tellFound(wanted);
  }

  paint(context, { node, x, width, row, above }, style, wanted) {
    const y = row * ROW_HEIGHT;
    const isFound = wanted && this.isFound(node, wanted);
    context.globalAlpha = above || (wanted && !isFound) ? 0.45 : 1;
    context.fillStyle = isFound ? style.found : this.colour(node, style.dark);
    context.fillRect(x, y, Math.max(width - 0.7, 0.4), ROW_HEIGHT - 1);
    if (node === this.selected) {
      context.globalAlpha = 1;
      context.strokeStyle = style.accent;
      context.lineWidth = 2;
      context.strokeRect(x + 1, y + 1, Math.max(width - 2.7, 1), ROW_HEIGHT - 3);
    }
    const letters = Math.floor((width - 7) / LETTER_WIDTH);
    if (letters < 3) return;
    context.globalAlpha = above ? 0.75 : 1;
    context.fillStyle = isFound ? '#111' : style.text;
    context.save();
    context.beginPath();
    context.rect(x, y, width - 3, ROW_HEIGHT);
    context.clip();
    context.fillText(this.label(node, letters), x + 4, y + ROW_HEIGHT / 2);
    context.restore();
  }

  // The name, and behind it line and figure where there is room.
  label(node, letters) {
    let { name } = node.frame;
    if (name.length > letters) name = node.frame.short ??= shortName(name);
    if (name.length > letters) return name.slice(0, letters - 1) + '\u2026';
    const figure = figureText(node.value, this.unit) + '  ' + shareText(node.value, this.root.value);
    const line = this.view.lines && node.line ? '  ' + baseName(node.frame.file) + ':' + node.line : '';
    for (const more of [line + '  ' + figure, line, '  ' + figure]) if (more.length + name.length <= letters) return name + more;
    return name;
  }

  // A hue for each module, a shade for each function; in a comparison red has grown and blue has shrunk.
  colour(node, dark) {
    if (node.frame.extra || !node.parent) return dark ? '#3a3f46' : '#d5d8dc';
    if (this.comparison) {
      const change = node.after - node.before;
      const share = Math.min(1, Math.abs(change) / Math.max(node.before, node.after, 1));
      if (change === 0) return dark ? '#33383e' : '#e3e5e8';
      return d3.hsl(change > 0 ? 8 : 212, 0.35 + 0.4 * share, dark ? 0.26 + 0.12 * share : 0.86 - 0.18 * share).toString();
    }
    const shade = (node.frame.func * 2654435761 % 997) / 997;
    return d3.hsl(this.hue(node.frame.module) + 34 * shade, node.frame.filtered ? 0.18 : 0.62,
      dark ? 0.27 + 0.1 * shade : 0.68 + 0.1 * shade).toString();
  }

  // Warm for the first module, then far apart.
  hue(module) {
    this.hues ??= new Map();
    if (!this.hues.has(module)) this.hues.set(module, (18 + this.hues.size * 137.508) % 360);
    return this.hues.get(module);
  }

  // ---- Search

  isFound(node, wanted) {
    const { name, whole, file, module } = node.frame;
    return node.parent !== null && [name, whole, file, module].some((text) => text.toLowerCase().includes(wanted));
  }

  // What matches has, nothing of it counted twice.
  foundValue(node, wanted) {
    return this.isFound(node, wanted) ? node.value : d3.sum(node.children, (child) => this.foundValue(child, wanted));
  }

  tellFound(wanted) {
    if (!wanted) { this.found.textContent = ''; return; }
    const value = this.foundValue(this.focus, wanted);
    this.found.textContent = value ? figureText(value, this.unit) + ', ' + shareText(value, this.focus.value) + ' of what is shown' : 'nothing found';
  }

  // ---- Pointer and keyboard

  at(event) {
    const { left, top } = this.canvas.getBoundingClientRect();
    const row = this.rows[Math.floor((event.clientY - top) / ROW_HEIGHT)] || [];
    const x = event.clientX - left;
    return row.find((box) => x >= box.x && x < box.x + box.width)?.node || null;
  }

  hover(event) {
    const node = this.at(event);
    this.tip.hidden = !node;
    if (!node) return;
    this.tip.replaceChildren(...this.lines(node));
    const { clientWidth, clientHeight } = document.documentElement;
    this.tip.style.left = Math.max(4, Math.min(event.clientX + 14, clientWidth - this.tip.offsetWidth - 8)) + 'px';
    const below = event.clientY + 18;
    this.tip.style.top = (below + this.tip.offsetHeight > clientHeight ? event.clientY - this.tip.offsetHeight - 10 : below) + 'px';
  }

  click(event) {
    const node = this.at(event);
    if (!node) return;
    this.zoom(node);
    this.select(nodeAt(this.root, keysOf(node)));
  }

  select(node) {
    this.selected = node;
    this.draw();
    this.tell(node);
    const row = this.boxes.find((box) => box.node === node)?.row;
    if (row === undefined) return;
    const [top, bottom] = [row * ROW_HEIGHT, (row + 1) * ROW_HEIGHT];
    if (top < this.box.scrollTop) this.box.scrollTop = top;
    if (bottom > this.box.scrollTop + this.box.clientHeight) this.box.scrollTop = bottom - this.box.clientHeight;
  }

  sibling(by) {
    const among = this.rows[this.boxes.find((box) => box.node === this.selected).row];
    return among[among.findIndex((box) => box.node === this.selected) + by]?.node;
  }

  key(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const now = this.selected;
    const moves = {
      ArrowDown: () => (now ? now.children[0] : this.focus), ArrowUp: () => now && now.parent,
      ArrowLeft: () => now && this.sibling(-1), ArrowRight: () => now && this.sibling(1), Home: () => this.focus,
    };
    const actions = {
      Enter: () => { if (now) { const keys = keysOf(now); this.zoom(now); this.select(nodeAt(this.root, keys)); } },
      Backspace: () => { if (!this.backward.disabled) history.back(); }, Escape: () => { if (!this.whole.disabled) this.whole.click(); },
      w: () => { if (now && now.parent && !now.frame.extra) this.whoCalls(now); }, '/': () => this.search.focus(),
    };
    if (!moves[event.key] && !actions[event.key]) return;
    event.preventDefault();
    if (actions[event.key]) return void actions[event.key]();
    const next = moves[event.key]();
    if (next && this.boxes.some((box) => box.node === next)) this.select(next);
  }

  // ---- Words about a box

  figureLine(node) {
    const { value, own, before, after } = node;
    const parts = [figureText(value, this.unit), shareText(value, this.root.value) + ' of all'];
    if (node.parent) parts.push(shareText(value, node.parent.value) + (this.view.mode === 'callers' ? ' of its caller' : ' of what it calls'));
    if (own && this.view.mode === 'callers') parts.push(figureText(own, this.unit) + ' by itself');
    if (this.comparison) parts.push(figureText(before, this.unit) + ' \u2192 ' + figureText(after, this.unit));
    return parts.join(', ');
  }

  lines(node) {
    const { name, whole, module } = node.frame;
    const place = [placeText(node.frame, node.line), module].filter(Boolean).join(' \u2014 ');
    return [element('strong', {}, name), element('div', {}, this.figureLine(node)), element('div', { className: 'note' }, place),
      ...(whole !== name && whole.length < 1500 ? [element('div', { className: 'note whole' }, whole)] : [])];
  }

  tell(node) {
    if (!node) {
      this.detail.replaceChildren(element('span', { className: 'note' },
        'Click a box to look closer; keys: arrows, Enter, Backspace, W for who calls it, / to search.'));
      return;
    }
    const who = node.parent && !node.frame.extra
      ? element('button', { type: 'button', onclick: () => this.whoCalls(node) }, 'Who calls this?') : null;
    this.detail.replaceChildren(...this.lines(node), ...(who ? [element('div', { className: 'controls' }, who)] : []));
  }
}

function drawFlame(process, holder) {
  flames.graph = null;
  if (process.flame) flames.graph = new FlameGraph(process.flame, holder);
}

window.addEventListener('popstate', (event) => { if (flames.graph && event.state?.graph === flames.graph.number) flames.graph.restore(event.state.view); });
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => flames.graph?.draw());
